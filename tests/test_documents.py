"""Holds documents, manual pages and completions against the program, and runs what they show."""

import re
import shutil

import pytest
from harness import ROOT

pytestmark = pytest.mark.once


def read(name):
    return "".join(path.read_text() for path in ROOT.glob(name))


def blocks(document):
    """The shell commands of a document, one piece for each fenced sh block."""
    return re.findall(r"^```sh\n(.*?)\n```$", read(document), re.M | re.S)


def test_commands_of_the_readme_run_in_one_shell_and_print_what_it_says(studio):
    copy = studio.place / "orvelline-installer"
    shutil.copytree(ROOT, copy, symlinks=True, ignore=shutil.ignore_patterns(".git", "build"))
    shutil.copytree(studio.build, copy / "build/release")
    (copy / "build/release/.run").touch()  # it is built
    codes = [code for code in blocks("README.md") if code != "tools/check"]  # runs this test
    ended = studio.sh("\n".join(["exec 2>&1", *codes]), cwd=copy)
    told = ended.out.replace(str(copy), "/home/you/orvelline-installer")
    shown = re.findall(r"```\n\n```text\n([^`]*)", read("README.md"))
    told, *shown = [re.sub(r"\d{10,}", "", text) for text in (told, *shown)]
    assert (ended.status, [text for text in shown if text not in told]) == (0, []), ended


@pytest.mark.parametrize("place", ["README.md", "tools/make-package", "fleet/library/*.py"])
def test_every_place_has_the_bundles(place):
    name = r"\w+\.(?:vst3|component)\b"
    known = re.findall(name, read("src/package/identity.h"))
    assert {*re.findall(name, read(place))} == {*known}


def test_every_message_is_explained():
    raised = re.findall(r'runtime_error\(\s*"([^"]*)', read("src/**/*.cpp"))
    rows = re.findall(r"^\| `([^`<]*)[^`]*`(?: \| [^|]+){4} \|$", read("docs/messages.md"), re.M)
    assert {*raised} - {*rows} == set()


@pytest.mark.parametrize("program, sources", [
    ("orvelline-installer", "src/cli"), ("orvelline-repair", "src/repair")])
def test_every_place_has_the_options(program, sources):
    known = {*re.findall(r'\{"--([a-z-]+)", ', read(f"{sources}/*.cpp"))}
    assert {*re.findall(r"^\.It Fl -(\S+)", read(f"man/{program}.1"), re.M)} == known
    assert {*re.findall(r"--([a-z-]+)", read(f"completions/_{program}"))} == known
    assert {*re.findall(r"--([a-z-]+)", read(f"completions/{program}.bash"))} == known
    table = {*re.findall(r"^\| `--([a-z-]+)", read("README.md"), re.M)}
    assert sources == "src/repair" or table == known
