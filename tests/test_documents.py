"""Holds documents, manual pages and completions against the program, and runs what they show."""

import os
import re
import shutil

import pytest
from harness import ENVIRONMENT, NAMES, ROOT, blocks

pytestmark = pytest.mark.once
# Each, and the directory of the sources that has its options.
PROGRAMS = {"orvelline-installer": "cli", "orvelline-repair": "repair"}


def read(name):
    return (ROOT / name).read_text()


def test_commands_of_the_readme_run_and_print_what_it_says(studio):
    copy = studio.place / "orvelline-installer"
    shutil.copytree(ROOT, copy, symlinks=True, ignore=shutil.ignore_patterns(".git", "build"))
    shutil.copytree(studio.build, copy / "build/release")
    (copy / "build/release/.run").touch()  # it is built
    printed = dict(re.findall(r"```sh\n([^`]*)\n```\n\n```text\n([^`]*)```", read("README.md")))
    for _, code in blocks("README.md"):
        if code != "tools/check":  # runs this test
            status, out, err = studio.sh(code, cwd=copy)
            assert status == 0, (code, out, err)
            said = err.splitlines(True)[-1] if code.startswith("! ") else out
            said = said.replace(str(copy), "/home/you/orvelline-installer")
            assert re.sub(r"-\d{10,}", "-TICKS", said) == re.sub(
                r"-\d{10,}", "-TICKS", printed.get(code, said))
    # It has installed the documents, too, and not all that stands beside them here.
    root = next(copy.glob("build/usr/**/README.md")).parent
    for document in root.rglob("*.md"):
        for link in re.findall(r"\]\((?!http)([^)]*)\)", document.read_text()):
            target = (document.parent / link).resolve()
            assert target.exists() and root in target.parents, (document, link)


def test_every_place_has_the_bundles_that_the_installer_knows():
    readme = read("README.md")
    rows = re.findall(r"^\| `payload/(\w+)`(.*)", readme, re.M)
    table = {f"{place}/{name}" for place, row in rows for name in re.findall(r"`(.*?)`", row)}
    number = "four five six seven eight nine ten eleven twelve".split()[len(NAMES) - 4]
    paths = {f"{'Marbrel' if 'Marbrel' in name else 'Quellotrone'}/"
             f"{'VST3' if name.endswith('.vst3') else 'Components'}/{name}" for name in NAMES}
    packed = re.findall(r"^\w+/\w+/\S+$", read("tools/make-package"), re.M)
    wrong = {"README.md, A package": table ^ {path.partition("/")[2] for path in paths},
             "README.md, their number": {*re.findall(r"(\w+) by name", readme)} ^ {number},
             "tools/make-package": {*packed} ^ paths}
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


def test_examples_of_the_manual_pages_run(studio):
    shutil.copytree(ROOT / "examples/Marbrel-VST3", studio.place / "Marbrel-VST3")
    said = []
    for program in PROGRAMS:
        os.symlink(f"{studio.build}/tests/{program.partition('-')[2]}-under-test",
                   studio.place / program)
        for command in re.findall(r"^\.Dl (.*)", read(f"man/{program}.1"), re.M):
            status, out, err = studio.sh(command, environment={"PATH": f".:{ENVIRONMENT['PATH']}"})
            assert (status, err) == (0, ""), command
            said.append(re.split("[ :;]", out)[0])
    assert said[:4] == ["READY", "INSTALLED", "REMOVED", "INSTALLED"]


@pytest.mark.parametrize("program, sources", PROGRAMS.items())
def test_manual_page_and_completions_have_the_options(studio, program, sources):
    code = "".join(path.read_text() for path in (ROOT / "src" / sources).glob("*.cpp"))
    options = {name: takes == "[" for name, takes in re.findall(r'\{"(--[a-z-]+)", (\[|&)', code)}
    lint = studio.run("mandoc", "-T", "lint", ROOT / f"man/{program}.1")[1].splitlines()
    assert not [line for line in lint if not re.search(r"Xr (lsof 8|orvelline-\w+ 1)", line)]
    page = read(f"man/{program}.1")
    for part in (page[page.index(".Sh SYNOPSIS"):page.index(".Sh DESCRIPTION")],
                 "\n".join(re.findall(r"^\.It Fl.*", page, re.M))):
        found = re.findall(r"Fl (-\S+)( Ar)?", part)
        assert {f"-{name}": bool(value) for name, value in found} == options

    # In zsh, what the file says to the shell's own function.
    code = '_arguments() { print -rl -- "$@" }; source "$0"'
    specs = studio.run("zsh", "-f", "-c", code, ROOT / f"completions/_{program}")[1]
    values = dict(re.findall(r"^\*?(--[a-z-]+)\[[^]]+\](?::[^:]+:(.+))?$", specs, re.M))
    assert {name: bool(value) for name, value in values.items()} == options
    studio.sh("mkdir d-one 'd-o n e' 'd-o*' e; touch d-file")
    code = f'source "$0"; COMP_WORDS=({program} "$@"); COMP_CWORD=$#; ' \
           f'_{program.replace("-", "_")}; printf "%s\\n" "${{COMPREPLY[@]}}"'
    for words, found in [
            ([""], sorted(values)), (["--t"], ["--test-root"]), (["x"], [""]),
            *(([name, "d-"], ["d-o n e", "d-o*", "d-one"]) if value == "_files -/" else
              ([name, ""], sorted(value.strip("()").split()))
              for name, value in values.items() if value)]:
        ended = studio.run("bash", "-c", code, ROOT / f"completions/{program}.bash", *words)
        assert (ended[0], sorted(ended[1].splitlines()), ended[2]) == (0, found, ""), words
