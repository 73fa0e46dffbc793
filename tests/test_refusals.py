"""The command line, and every refusal up to the end of the verification."""

import resource
import shlex

import pytest
from harness import HD, INSTALLED, LIBRARY, LOADED, LOW, disk, files, lines, rows, write

ONE = {f"{HD}/a": "one"}
GOOD = lines(ONE)
HASH = 64 * "a"
REFUSED = "Symlink path refused: "


# Each in its directory, "tool" being the program.
@pytest.mark.parametrize("message, command", rows({
    "Package directory required": ["tool", "tool --dry-run", "tool --package p --package ''"],
    "Unknown option: --package": ["tool --package", "tool --package p --package"],
    **{f"Unknown option: {word}": [f"tool {word} --package p"]
       for word in ("p", "--help", "--Remove", "--dry", "--package=p")},
    **{f"Manifest missing: {{}}/{path}/CONTENTS.sha256": [f"tool --package {path}"]
       for path in ("none", "none/../p", "--remove")},
    # The deepest link on the way is named, also where nothing is.
    f"{REFUSED}{{}}/link": ["tool --package link/", "tool --package link/../p"],
    f"{REFUSED}{{}}/link/deep": ["tool --package link/deep/x"],
    # The rules on names come first, the one format after the choice of the support directory.
    "Mixed product package refused": ["HOME= tool --package mixed"],
    "User directory unavailable": ["HOME= tool --package both", "unset HOME; tool --package p"],
    f"{REFUSED}link": ["HOME=link tool --package both"],
    LIBRARY: [f"tool --package {300 * 'x'}", "cd gone; rmdir ../gone; tool --test-root x --no"],
    "": ["tool --package none --remove --remove --dry-run --package q",
         "tool --package home/../p// --dry-run --test-root link --test-root y/../z"],
}), ids=lambda text: text[:99])
def test_options(studio, message, command):
    studio.package("p", ONE)
    studio.package("mixed", ONE, "Quellotrone")
    studio.package("q", {"Components/QuellotroneAU.component/a": ""}, "Quellotrone")
    studio.package("both", ONE | {"Components/MarbrelHDAU.component/a": ""})
    studio.sh("mkdir -p gone real/inner; ln -s inner real/deep; ln -s real link")
    tool = f'tool() {{ {shlex.join(studio.command())} "$@"; }}'
    assert studio.sh(f"{tool}; {command}") == studio.ends(message)


def keys(*texts, before=""):
    return [f"{before}{HASH}  {text}\n" for text in texts]


@pytest.mark.parametrize("message, contents", rows({
    "Malformed manifest": [f"{GOOD}\n", f"{HASH}  ", f"{HASH} *a\n", f"{HASH}\t a\n", f"{GOOD}01"],
    "Invalid hash": [*(f"{64 * digit}  /a\n" for digit in "Ag"), f"{HASH[1:]}   a\n"],
    "Absolute manifest path refused": keys("/a", "//a", "/", "/../a"),
    "Unsafe manifest path": keys(".", "..", "./a", "a/./b", "a/../b", "a/..", "a/../"),
    "Duplicate manifest entry": [GOOD + GOOD, *keys(f"{HD}/a", before=GOOD)],
    "Missing bundle": keys("VST3", "PRODUCT.txt"),
    "Unexpected format": keys("x/", "vst3/MarbrelHD.vst3/a"),
    "Unexpected bundle identity": keys("VST3/", "VST3/marbrelHD.vst3/a", "VST3/MarbrelHD.vst3x/a"),
    "Format mismatch": keys("VST3/MarbrelHDAU.component/a", "Components/MarbrelHD.vst3/a"),
    "Mixed product package refused": keys("VST3/Quellotrone.vst3/a", before=GOOD),
    "Use one format per package": keys("Components/MarbrelHDAU.component/a", before=GOOD),
    # Past these rules, the payload is next.
    f"Bundle missing: {{}}/p/payload/{LOW}": keys("VST3//MarbrelLowCPU.vst3/a", before=GOOD),
    f"Package checksum mismatch: {HD}": [
        *keys(HD, f"{HD}/a"), *keys(f"{HD}/", f"{HD}//a", f"{HD}/a/", before=GOOD)],
    "": [GOOD[:-1], *keys(HD, "VST3//MarbrelHD.vst3/a", before=GOOD)],
}), ids=lambda text: text[:99])
def test_what_a_manifest_may_say(studio, message, contents):
    write(studio.package("p", ONE) / "CONTENTS.sha256", contents)
    assert studio.tool("--package", "p", "--dry-run") == studio.ends(message)
    assert disk(studio.place / "home") == {}


def test_odd_names_and_sizes(studio):
    names = [" \u00e9\x01'\"$`\\*\r", "--", "..a", "a..", "...", "\u00e9",
             "dir/" * 59 + "file", *(f"many/{number}" for number in range(800))]
    package = studio.package("p", {f"{HD}/{name}": "x" for name in names} | {
        f"{HD}/size {size}": "\0" * size for size in (0, 65535, 65536, 65537)})
    receipt = (package / "CONTENTS.sha256").read_bytes()
    # Neither the lines' order nor the last line's end counts.
    (package / "CONTENTS.sha256").write_bytes(b"\n".join(reversed(receipt.split(b"\n")[:-1])))
    # As many descriptors as are open at the deepest file: each that is not closed is missed.
    limit = () if studio.emulator else (resource.RLIMIT_NOFILE, (64, 64))
    assert studio.on("p", preexec_fn=lambda: limit and resource.setrlimit(*limit)).status == 0
    assert disk(studio.plugins) == disk(package / "payload")
    assert (studio.support / "Marbrel-VST3.sha256").read_bytes() == receipt


@pytest.mark.parametrize("home, options, plugins, support", [
    ("{}/a", [], "a/Library/Audio/Plug-Ins", "{}/a/Library/Application Support/Orvelline"),
    ("c/", [], "c/Library/Audio/Plug-Ins", "c/Library/Application Support/Orvelline"),
    ("", ["--test-root", ""], "plugins", "{}/support"),
    ("", ["--test-root", "f g/"], "f g/plugins", "{}/f g/support")])
def test_places(studio, home, options, plugins, support):
    studio.package("p", ONE)
    environment = {"HOME": home.format(studio.place)}
    out = studio.tool("--package", "p", *options, environment=environment).out
    assert out.startswith(f"{INSTALLED}{support.format(studio.place)}/Backups/Marbrel-")
    assert disk(studio.place / plugins) == disk(studio.place / "p/payload")


@pytest.mark.parametrize("message, change", rows({
    "Empty manifest": ["rm $c; mkdir $c", "rm -r r/plugins; : >$r", ": >$r; echo >$hd/x"],
    "Unknown product": ["rm $q", "echo marbrel >$q", "printf '\\nMarbrel\\n' >$q",
                        "printf 'Marbrel\\r\\n' >$q", "printf 'Marbrel%99s' x >$q"],
    f"{REFUSED}{{}}/p/payload/VST3": ["mv p/payload/VST3 v; ln -s ../../v p/payload/VST3"],
    f"{REFUSED}{{}}/r/plugins/{HD}": ["rm -r $d; ln -s x $d", "mv $d v; ln -s ../../../v $d"],
    f"{REFUSED}{{}}/r/support/Marbrel-VST3.sha256": ["rm $r; ln -s x $r"],
    f"{REFUSED}{{}}/r/support/Backups": ["mv r/support/Backups r/b; ln -s ../b r/support/Backups"],
    f"Bundle missing: {{}}/p/payload/{HD}": ["rm -r $hd", "rm -r $hd; echo >$hd"],
    f"Bundle missing: {{}}/r/plugins/{HD}": ["rm -r $d; echo >$d"],
    "Empty bundle refused": ["rm -r $hd; mkdir -p $hd/b/c", "rm -r $d; mkdir $d"],
    "Symlink member refused": ["ln -s a $hd/MacOS/l", "ln -s .. $low/l", "ln -s x $d/l"],
    f"Package checksum mismatch: {HD}": ["echo x >$hd/b", "mv $hd/b $hd/c", "echo >$hd/.more"],
    f"Unknown or modified plugin preserved: {{}}/r/plugins/{HD}": [
        "echo x >$d/b", "echo >$d/.x", "rm $d/MacOS/a", "rm $r; echo x >$d/b"],
    # The first bundle is done with before the second is looked at.
    LOADED: ["echo x >$low/x; printf '#!/bin/sh\\nexit 0\\n' >lsof"],
    "": ["mkdir $hd/c $d/c", "mkfifo $hd/f $d/f", "rm $r", "echo >$r.tmp", "printf Marbrel >$q",
         "rm -r r/plugins/VST3; echo >r/plugins/VST3", "printf 'Marbrel\\n%99s' x >$q"],
}))
def test_preflight_changes_nothing(studio, message, change):
    studio.package("p", files(1))
    studio.done("p")
    assert studio.sh(f"hd=p/payload/{HD} low=p/payload/{LOW} d=r/plugins/{HD} c=p/CONTENTS.sha256 "
                     f"r=r/support/Marbrel-VST3.sha256 q=p/PRODUCT.txt; {change}").status == 0
    before = disk(studio.place / "r")
    for options in [["--remove"], []] if message else [["--dry-run"], ["--dry-run", "--remove"]]:
        assert studio.on("p", *options) == studio.ends(message)
    assert disk(studio.place / "r") == before
