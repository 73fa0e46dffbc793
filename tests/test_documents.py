"""Holds documents, manual pages and completions against the program, and runs what they show."""

import re
import shutil

import pytest
from harness import ROOT

pytestmark = pytest.mark.once


def read(name):
    """The text of a file, or of all whose name is like this."""
    return "".join(path.read_text() for path in ROOT.glob(name))


def blocks(document):
    """The shell commands of a document: pairs of the heading above and the fenced sh block."""
    pairs, heading = [], ""
    for title, code in re.findall(r"^#+ ([^\n]*)$|^```sh\n(.*?)\n```$",
                                  (ROOT / document).read_text(), re.M | re.S):
        pairs += [(heading, code)] if code else []
        heading = title or heading
    return pairs


def test_commands_of_the_readme_run_in_one_shell_and_print_what_it_says(studio):
    copy = studio.place / "orvelline-installer"
    shutil.copytree(ROOT, copy, symlinks=True, ignore=shutil.ignore_patterns(".git", "build"))
    shutil.copytree(studio.build, copy / "build/release")
    (copy / "build/release/.run").touch()  # it is built
    codes = [code for _, code in blocks("README.md") if code != "tools/check"]  # runs this test
    ended = studio.sh("exec 2>&1\n" + "\necho ====\n".join(codes), cwd=copy)
    assert ended[0] == 0, ended
    told = ended[1].replace(str(copy), "/home/you/orvelline-installer").split("====\n")
    for code, text in re.findall(r"```sh\n([^`]*)\n```\n\n```text\n([^`]*)```", read("README.md")):
        text = re.sub(r"-\d{10,}", r"-\\d{10,}", re.sub("[][().;]", ".", text))
        assert re.fullmatch(text, told[codes.index(code)]), (code, told)
    # It has installed the documents, too, and not all that stands beside them here.
    broken = [(document, link) for document in copy.glob("build/usr/**/*.md")
              for link in re.findall(r"\]\((?!http)([^)#]*)\)", document.read_text())
              if not (document.parent / link).resolve().exists()]
    assert broken == []


def test_every_place_has_the_bundles_that_the_installer_knows():
    known = re.findall(r'"(\w+\.(?:vst3|component))"', read("src/package/identity.cpp"))
    rows = re.findall(r"^\| `payload/(\w+)`(.*)", read("README.md"), re.M)
    table = {f"{place}/{name}" for place, row in rows for name in re.findall(r"`(.*?)`", row)}
    paths = {f"{'VST3' if name.endswith('.vst3') else 'Components'}/{name}" for name in known}
    made = {f"{'Marbrel' if 'Marbrel' in path else 'Quellotrone'}/{path}" for path in paths}
    number = "four five six seven eight nine ten eleven twelve".split()[len(known) - 4]
    packed = {*re.findall(r"^\w+/\w+/\S+$", read("tools/make-package"), re.M)}
    wrong = {"README.md, A package": table ^ paths, "tools/make-package": packed ^ made,
             "README.md, number": {number} ^ {*re.findall(r"(\w+) by name", read("README.md"))}}
    assert {place: names for place, names in wrong.items() if names} == {}


def test_messages_are_those_that_the_sources_raise_or_print():
    known, repair = {"filesystem error: ", "std::bad_alloc"}, set()  # the library's own
    for source in (ROOT / "src").rglob("*.cpp"):
        code = re.sub(r"//.*|^#include.*", "", source.read_text(), flags=re.M)
        raised = re.findall(r'\bthrow (?:std::runtime_error\(\s*"([^"]*)")?(?!std::file)', code)
        assert all(raised), source  # what is raised has its text there
        sentences = {text.removesuffix("\\n") for text in re.findall(r'"([^"\n]* [^"\n]*)"', code)}
        known |= {*raised} | (sentences if source.match("cli/run.cpp") else set())
        repair |= sentences if source.match("repair/*") else set()
    rows = re.findall(r"^\| `(.*?)(?:<\w+>)?`(?: \| [^|]+){4} \|$", read("docs/messages.md"), re.M)
    assert len({*rows}) == len(rows) == read("docs/messages.md").count("\n| `")
    assert known <= {*rows} <= known | repair


@pytest.mark.parametrize("program, sources", [
    ("orvelline-installer", "src/cli"), ("orvelline-repair", "src/repair")])
def test_every_place_has_the_options(studio, program, sources):
    options = {*re.findall(r'\{"--([a-z-]+)", [\[&]', read(f"{sources}/*.cpp"))}
    page = read(f"man/{program}.1")
    places = {"synopsis": re.findall(r"Fl -(\S+)", page.partition(".Sh DESCRIPTION")[0]),
              "list": re.findall(r"^\.It Fl -(\S+)", page, re.M),
              "zsh": re.findall(r"--([a-z-]+)\[", read(f"completions/_{program}")),
              "bash": re.findall(r"--([a-z-]+)(?=.*'\))", read(f"completions/{program}.bash"))}
    if sources == "src/cli":
        places["README.md"] = re.findall(r"^\| `--([a-z-]+)", read("README.md"), re.M)
    assert {place: {*names} ^ options for place, names in places.items()
            if {*names} != options} == {}
    lint = studio.run("mandoc", "-T", "lint", ROOT / f"man/{program}.1")[1].splitlines()
    assert [line for line in lint if not re.search(r"Xr \S+ \d|: Os Orvelline", line)] == []
