"""Compares documents, manual pages and completions with the programs, and runs README."""

import re
import shutil

import pytest
from harness import READY, ROOT, files

pytestmark = pytest.mark.once
BUNDLES = [
    "Marbrel/VST3/MarbrelHD.vst3", "Marbrel/VST3/MarbrelLowCPU.vst3",
    "Marbrel/Components/MarbrelHDAU.component", "Marbrel/Components/MarbrelLowCPUAU.component",
    "Quellotrone/VST3/Quellotrone.vst3", "Quellotrone/Components/QuellotroneAU.component"]


def read(name):
    return "".join(path.read_text() for path in ROOT.glob(name))


def blocks(document):
    """The fenced sh blocks of a document."""
    return re.findall(r"^```sh\n(.*?)\n```$", read(document), re.M | re.S)


def test_commands_of_the_readme_run_in_one_shell_and_print_what_it_says(studio):
    copy = studio.place / "orvelline-installer"
    shutil.copytree(ROOT, copy, symlinks=True, ignore=shutil.ignore_patterns(".git", "build"))
    shutil.copytree(studio.build, copy / "build/release")
    (copy / "build/release/.run").touch()  # so tools/run does not build it again
    codes = [code for code in blocks("README.md") if code != "tools/check"]  # runs this test
    ended = studio.sh("\n".join(["exec 2>&1", *codes]), cwd=copy)
    told = ended.out.replace(str(copy), "/home/you/orvelline-installer")
    shown = re.findall(r"```\n\n```text\n([^`]*)", read("README.md"))
    told, *shown = [re.sub(r"\d{10,}", "", text) for text in (told, *shown)]
    assert (ended.status, [text for text in shown if text not in told]) == (0, []), ended


def test_the_program_has_each_bundle_under_one_product_and_format(studio):
    tried = [f"{product}/{form}/{path.rpartition('/')[2]}" for path in BUNDLES
             for product in ("Marbrel", "Quellotrone") for form in ("VST3", "Components")]
    for path in tried:
        product, _, key = path.partition("/")
        studio.package(path, files(1, key), product)
    assert [path for path in tried if studio.on(path, "--dry-run") == READY] == BUNDLES


def test_every_place_has_the_bundles():
    known = re.findall(r"^\w+/\w+/\w+\.\w+$", read("tools/make-package"), re.M)
    assert sorted(known) == sorted(BUNDLES)
    shown = re.findall(r"^\| `payload/(\w+)` \| (.*) \|$", read("README.md"), re.M)
    keys = [f"{form}/{name}" for form, names in shown for name in re.findall(r"[\w.]+", names)]
    assert sorted(keys) == sorted(path.partition("/")[2] for path in BUNDLES)


def test_every_message_is_explained():
    sources = read("src/**/*.cpp") + read("src/**/*.h")
    raised = {*re.findall(r'runtime_error\(\s*"([^"]*)', sources)}
    printed = {*re.findall(r'"((?:[^"\\\n]|\\.)*?)(?:\\n)?"', sources)}
    cells = re.findall(r"^\| (`.*?) \| ", read("docs/messages.md"), re.M)
    rows = {*re.findall(r"`([^`<]+)[^`]*`", " ".join(cells))}
    # The last two come from the C++ library.
    assert (raised - rows, rows - printed) == (set(), {"filesystem error: ", "std::bad_alloc"})


@pytest.mark.parametrize("program, sources", [
    ("orvelline-installer", "src/cli"), ("orvelline-repair", "src/repair")])
def test_every_place_has_the_options(program, sources):
    known = {*re.findall(r'"--([a-z-]+)"', read(f"{sources}/*.cpp"))}
    places = {f"man/{program}.1": r"^\.It Fl -(\S+)", f"completions/_{program}": r"--([a-z-]+)",
              f"completions/{program}.bash": r"--([a-z-]+)"}
    if program == "orvelline-installer":
        places["README.md"] = r"^\| `--([a-z-]+)"
    wrong = [f"{place}: --{option}" for place, form in places.items()
             for option in known ^ {*re.findall(form, read(place), re.M)}]
    assert not wrong, "\n".join(wrong)
