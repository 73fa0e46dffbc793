"""Holds documents, manual pages and completions against the program, and runs what they show."""

import os
import re
import shutil

import pytest
from harness import ENVIRONMENT, NAMES, ROOT, blocks

pytestmark = pytest.mark.once
# Each program has a manual page and completions, and its options in one directory of the sources.
PROGRAMS = {program: "repair" if program.endswith("repair") else "cli" for program in re.findall(
    r"add_executable\((orvelline-\w+)", (ROOT / "CMakeLists.txt").read_text())}
NUMBERS = "one two three four five six seven eight nine ten eleven twelve".split()
LIBRARY = {"filesystem error: ", "std::bad_alloc"}  # what the standard library says itself
# What a failure can have changed goes by the file that raises it.
CHANGED = {"nothing": ("cli", "package/identity", "package/manifest", "install/loc", "install/pre"),
           "backup only": ("transaction/backup", "transaction/staging"),
           "undone": ("transaction/commit", "transaction/receipt")}


def read(name):
    return (ROOT / name).read_text()


def broken(root):
    """The links in the documents of a directory that lead nowhere, or out of it."""
    for document in root.rglob("*.md"):
        for path, heading in re.findall(r"\]\((?!http)([^)#]*)#?([^)]*)\)",
                                        document.read_text()):
            target = (document.parent / path).resolve() if path else document
            titles = re.findall("^#+ (.*)", target.read_text(), re.M) if target.is_file() else []
            if not target.exists() or root not in target.parents or heading not in [
                    "", *(re.sub(r"[^\w -]", "", title).lower().replace(" ", "-")
                          for title in titles)]:
                yield document.name, path, heading


def test_commands_of_the_readme_run_and_print_what_it_says(studio):
    copy = studio.place / "orvelline-installer"
    shutil.copytree(ROOT, copy, symlinks=True, ignore=shutil.ignore_patterns(".git", "build"))
    shutil.copytree(studio.build, copy / "build/release")
    (copy / "build/release/.run").touch()  # it is built
    printed = dict(re.findall(r"```sh\n(.*?)\n```\n\n```text\n(.*?\n)```", read("README.md"), re.S))
    for _, code in blocks("README.md"):
        if code != "tools/check":  # runs this test
            status, out, err = studio.sh(code, cwd=copy)
            assert status == 0, (code, out, err)
            said = err.splitlines(True)[-1] if code.startswith("! ") else out
            said = said.replace(str(copy), "/home/you/orvelline-installer")
            assert re.sub(r"-\d{10,}", "-TICKS", said) == re.sub(
                r"-\d{10,}", "-TICKS", printed.get(code, said))
    # It has installed the documents, too, and not all that stands beside them here.
    assert list(copy.glob("build/usr/**/README.md")) and not list(broken(copy / "build/usr"))


def test_every_place_has_the_bundles_that_the_installer_knows():
    table = "".join(re.findall(r"^\| `payload/.*", read("README.md"), re.M))
    packed = re.findall(r"^\w+/\w+/(\S+)$", read("tools/make-package"), re.M)
    wrong = {"README.md, A package": {*re.findall(r"`(\w+\.\w+)`", table)} ^ {*NAMES},
             "tools/make-package": {*packed} ^ {*NAMES}}
    for path in [*ROOT.glob("*.md"), *ROOT.glob("docs/*"), *ROOT.glob("man/*")]:
        said = re.findall(rf"\b({'|'.join(NUMBERS[4:])})\s+(?:by name|names|bundles|plug-ins)\b",
                          path.read_text())
        wrong[f"{path.name}, their number"] = {*said} - {NUMBERS[len(NAMES) - 1]}
    assert {place: names for place, names in wrong.items() if names} == {}


def test_messages_are_those_that_the_sources_raise_or_print():
    known, repair, raised = {*LIBRARY}, set(), {}
    for source in (ROOT / "src").rglob("*.cpp"):
        code = re.sub(r"//.*|^#include.*", "", source.read_text(), flags=re.M)
        for text in re.findall(r'\bthrow std::runtime_error\(\s*"([^"]*)"', code):
            raised.setdefault(text, []).append(str(source.relative_to(ROOT / "src")))
        # What is raised has its text there, or is the library's own failure.
        assert not re.findall(r'throw (?!std::runtime_error\(\s*"|std::filesystem::)[^;]*', code)
        sentences = {text.removesuffix("\\n") for text in re.findall(r'"([^"\n]* [^"\n]*)"', code)}
        known |= sentences if source.match("cli/run.cpp") else set()
        repair |= sentences if source.match("repair/*") else set()
    rows = re.findall(r"^\| `(.*?)(?:<\w+>)?` \| [^|]+ \| ([^|]+) \| [^|]+ \| [^|]+ \|$",
                      read("docs/messages.md"), re.M)
    texts = {text for text, _ in rows}
    assert len(texts) == len(rows) == read("docs/messages.md").count("\n| `")
    assert known | {*raised} <= texts <= known | {*raised} | repair
    for text, changed in rows:
        for source in raised.get(text, []):
            assert all(changed == wanted for wanted, places in CHANGED.items()
                       if source.startswith(places)), (text, source)


def options(program):
    """The options of a program, each with whether it takes a value."""
    code = "".join(path.read_text() for path in (ROOT / "src" / PROGRAMS[program]).glob("*.cpp"))
    found = re.findall(r'\{"(--[a-z-]+)", (\[&\])?', code)
    return {name: bool(value) for name, value in found}


@pytest.mark.parametrize("program", PROGRAMS)
def test_manual_page_has_the_options(studio, program):
    # Pages of which it speaks need not be installed where this runs.
    lint = studio.run("mandoc", "-T", "lint", ROOT / f"man/{program}.1")[1].splitlines()
    assert not [line for line in lint if not re.search(r"Xr (lsof 8|orvelline-\w+ 1)", line)]
    page = read(f"man/{program}.1")
    for part in (page[page.index(".Sh SYNOPSIS"):page.index(".Sh DESCRIPTION")],
                 "\n".join(re.findall(r"^\.It Fl.*", page, re.M))):
        found = re.findall(r"Fl (-\S+)( Ar)?", part)
        assert {f"-{name}": bool(value) for name, value in found} == options(program)


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


@pytest.mark.parametrize("program", PROGRAMS)
def test_completions_in_both_shells(studio, program):
    # In zsh, what the file says to the shell's own function.
    code = '_arguments() { print -rl -- "$@" }; source "$0"'
    specs = studio.run("zsh", "-f", "-c", code, ROOT / f"completions/_{program}")[1]
    values = dict(re.findall(r"^\*?(--[a-z-]+)\[[^]]+\](?::[^:]+:(.+))?$", specs, re.M))
    assert {name: bool(value) for name, value in values.items()} == options(program)
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
