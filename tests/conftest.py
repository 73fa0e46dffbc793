"""The options of a test run, the directory of each test, and the report of a failed test."""

import os
import shutil
import tempfile
from pathlib import Path

import pytest
from harness import ROOT, Ended, Studio, differences, files

AROUND = ["test_documents", "test_fleet", "test_packager", "test_packages", "test_release"]
if "PYTEST_XDIST_WORKER" in os.environ:
    os.environ["CI"] = "1"  # pytest then prints each difference in full


def pytest_addoption(parser):
    parser.addoption("--build", default=str(ROOT / "build/release"), help="the build to test")
    parser.addoption("--emulator", default="", help="the command that runs the built programs")


def pytest_collection_modifyitems(items):
    """Runs the tests of the programs first, so that -x stops near the cause."""
    items.sort(key=lambda item: item.path.stem in AROUND)


def pytest_assertrepr_compare(op, left, right):
    if op == "==" and isinstance(left, Ended):
        left, right = left._asdict(), dict(zip(Ended._fields, right))
    if op == "==" and isinstance(left, dict):
        return differences(right, left)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    report = (yield).get_result()
    if report.failed and hasattr(item, "studio"):
        item.studio.keep = True
        report.sections.append((f"kept: {item.studio.place}", "\n".join(item.studio.told)))


def pytest_terminal_summary(terminalreporter):
    passed, failed, errors = (len(terminalreporter.stats.get(outcome, ()))
                              for outcome in ("passed", "failed", "error"))
    terminalreporter.write_line(f"{passed} passed, {failed + errors} failed")


@pytest.fixture
def studio(request):
    """A new directory for each test, on a path without links. It is kept if the test fails."""
    place = Path(tempfile.mkdtemp(dir=os.path.realpath(tempfile.gettempdir())))
    request.node.studio = Studio(place, os.path.abspath(request.config.getoption("--build")),
                                 request.config.getoption("--emulator").split())
    yield request.node.studio
    if not request.node.studio.keep:
        request.node.studio.sh("chmod -R u+rwx .")
        shutil.rmtree(place)


@pytest.fixture
def installed(studio):
    studio.package("1", files(1))
    studio.package("2", files(2))
    studio.done("1")
    return studio
