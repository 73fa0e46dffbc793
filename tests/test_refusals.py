"""The command line, and every refusal up to the end of the verification."""

import pytest
from harness import READY, disk, failed

HD = {"VST3/MarbrelHD.vst3/Contents/MacOS/MarbrelHD": "one"}


@pytest.mark.parametrize("arguments, ended", [
    ([], failed("Package directory required")),
    (["--dry-run"], failed("Package directory required")),
    (["--remove"], failed("Package directory required")),
    (["--package", ""], failed("Package directory required")),
    (["--package", "p", "--package", ""], failed("Package directory required")),
    (["p"], failed("Unknown option: p")),
    ([""], failed("Unknown option: ")),
    (["--help"], failed("Unknown option: --help")),
    (["--Remove"], failed("Unknown option: --Remove")),
    (["--dry"], failed("Unknown option: --dry")),
    (["--package=p"], failed("Unknown option: --package=p")),
    (["--package"], failed("Unknown option: --package")),
    (["--package", "p", "--package"], failed("Unknown option: --package")),
    (["--package", "p", "--test-root"], failed("Unknown option: --test-root")),
    (["-x", "--package"], failed("Unknown option: -x")),
    (["--package", "none", "--dry-run"], failed("Manifest missing: {}/none/CONTENTS.sha256")),
    (["--package", "p", "--dry-run"], READY),
    (["--package", "none", "--remove", "--remove", "--dry-run", "--package", "p"], READY),
    (["--package", "--remove", "--dry-run"], READY),
    (["--package", "none/../p/", "--dry-run"],
     failed("Manifest missing: {}/none/../p/CONTENTS.sha256")),
    (["--package", "home/../p/", "--dry-run", "--test-root", "x", "--test-root", "y/../z"], READY),
])
def test_four_options(studio, arguments, ended):
    studio.package("p", HD)
    studio.package("--remove", HD)
    before = disk(studio.place)
    status, out, err = ended
    assert studio.tool(*arguments) == (status, out, err.format(studio.place))
    assert disk(studio.place) == before
