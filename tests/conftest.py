"""The options of a test run, the directory that each test gets, and the line that counts."""

import os
import tempfile
from pathlib import Path

import pytest
from harness import ROOT, Studio, files


def pytest_addoption(parser):
    parser.addoption("--build", default=str(ROOT / "build/release"), help="what is tested")
    parser.addoption("--emulator", default="", help="the command that runs the built programs")


def pytest_terminal_summary(terminalreporter):
    passed, failed, errors = (len(terminalreporter.stats.get(outcome, ()))
                              for outcome in ("passed", "failed", "error"))
    terminalreporter.write_line(f"{passed} passed, {failed + errors} failed")


@pytest.fixture
def studio(request):
    """A directory of the test's own, on a path without links."""
    with tempfile.TemporaryDirectory(dir=os.path.realpath(tempfile.gettempdir())) as place:
        yield Studio(Path(place), os.path.abspath(request.config.getoption("--build")),
                     request.config.getoption("--emulator").split())


@pytest.fixture
def installed(studio):
    studio.package("1", files(1))
    studio.package("2", files(2))
    studio.done("1")
    return studio
