"""The command line, and every refusal up to the end of the verification."""

import resource
import shlex

import pytest
from harness import (HD, INSTALLED, LIBRARY, LOADED, LOW, RECEIPT, disk, each, files, lines, titled,
                     write)

ONE = {f"{HD}/a": "one"}
GOOD, HASH = lines(ONE), 64 * "a"
LINK, MISSING = "Symlink path refused: {}", "Bundle missing: {}"


# Why a command is refused, what it says, and the command; "tool" is the program.
@pytest.mark.parametrize("message, command", titled(
    ("no package is named", "Package directory required", "tool --dry-run"),
    ("a path is empty", "Package directory required", "tool --package p --package ''"),
    ("the last option lacks its value", "Unknown option: --package", "tool --package p --package"),
    ("a value is in the option's word", "Unknown option: --package=p", "tool --package=p"),
    ("a path is used as it is typed", "Manifest missing: {}/no/../p/CONTENTS.sha256",
     "tool --package no/../p"),
    ("a link is on the way", f"{LINK}/link", "tool --package link/../p"),
    ("of two links the last is named", f"{LINK}/link/deep", "tool --package link/deep/no"),
    ("a name is too long", LIBRARY, f"tool --package {300 * 'x'}"),
    ("the first bad option is named", LIBRARY, "cd gone; rmdir ../gone; tool --test-root x --no"),
    ("HOME is not set", "User directory unavailable", "unset HOME; tool --package p"),
    ("HOME is empty", "User directory unavailable", "HOME= tool --package formats"),
    ("HOME is asked for after the product", "Mixed product package refused",
     "HOME= tool --package mixed"),
    ("HOME is checked before the format", "Symlink path refused: link",
     "HOME=link tool --package formats"),
    ("not refused: the last value of an option counts", "",
     "tool --package --remove --remove --remove --dry-run --package q"),
    ("not refused: slashes and .. in a path", "",
     "tool --package home/../p// --dry-run --test-root y/../z"),
))
def test_command_line(studio, message, command):
    studio.package("p", ONE)
    studio.package("q", {"Components/QuellotroneAU.component/a": ""}, "Quellotrone")
    studio.package("mixed", ONE, "Quellotrone")
    studio.package("formats", ONE | {"Components/MarbrelHDAU.component/a": ""})
    studio.sh("mkdir -p gone real/inner; ln -s inner real/deep; ln -s real link")
    tool = f'tool() {{ {shlex.join(studio.command())} "$@"; }}'
    assert studio.sh(f"{tool}; {command}") == studio.ends(message)


def keys(*texts, before=""):
    return [f"{before}{HASH}  {text}\n" for text in texts]


# A rule, what is said when it is broken, and manifests that break it.
@pytest.mark.parametrize("message, manifest", each(
    ("a line is a digest, two spaces and a path", "Malformed manifest",
     [f"{GOOD}\n", f"{HASH}  ", f"{HASH} *a\n", f"{HASH}\t a\n", f"{GOOD}01"]),
    ("a digest has 64 lower-case digits", "Invalid hash",
     [f"{64 * 'A'}  /a\n", f"{64 * 'g'}  /a\n", f"{HASH[1:]}   a\n"]),
    ("a path is relative", "Absolute manifest path refused", keys("/a", "//a", "/", "/../a")),
    ("a path has no . or ..", "Unsafe manifest path", keys(".", "..", "./a", "a/./b", "a/../")),
    ("a path is listed once", "Duplicate manifest entry",
     [2 * GOOD, *keys(f"{HD}/a", before=GOOD)]),
    ("a path has two parts", "Missing bundle", keys("VST3", "PRODUCT.txt")),
    ("a path begins with a format", "Unexpected format", keys("x/", "vst3/MarbrelHD.vst3/a")),
    ("a bundle is known", "Unexpected bundle identity",
     keys("VST3/", "VST3/marbrelHD.vst3/a", "VST3/MarbrelHD.vst3x/a")),
    ("a bundle has one format", "Format mismatch",
     keys("VST3/MarbrelHDAU.component/a", "Components/MarbrelHD.vst3/a")),
    ("all bundles are the product's", "Mixed product package refused",
     keys("VST3/Quellotrone.vst3/a", before=GOOD)),
    ("all bundles have one format", "Use one format per package",
     keys("Components/MarbrelHDAU.component/a", before=GOOD)),
    ("all bundles are in the payload", f"{MISSING}/p/payload/{LOW}",
     keys("VST3//MarbrelLowCPU.vst3/a", before=GOOD)),
    ("all files are in the payload", f"Package checksum mismatch: {HD}",
     [*keys(HD, f"{HD}/a"), *keys(f"{HD}/", f"{HD}//a", f"{HD}/a/", before=GOOD)]),
    ("not refused: no last newline, a bundle's own path, two slashes", "",
     [GOOD[:-1], *keys(HD, "VST3//MarbrelHD.vst3/a", before=GOOD)]),
))
def test_manifest(studio, message, manifest):
    write(studio.package("p", ONE) / "CONTENTS.sha256", manifest)
    assert studio.tool("--package", "p", "--dry-run") == studio.ends(message), manifest
    assert disk(studio.place / "home") == {}


# A rule, what is said when it is broken, and changes that break it. They know the manifest, the
# product's file, a bundle's new and installed version, and the receipt.
@pytest.mark.parametrize("message, change", each(
    ("a manifest is a file with a line", "Empty manifest",
     ["rm $list; mkdir $list", "rm -r r/plugins; : >$receipt", ": >$receipt; echo >$new/x"]),
    ("a product is known", "Unknown product",
     ["rm $product", "printf '\\nMarbrel\\n' >$product", "printf 'Marbrel\\r\\n' >$product",
      "printf 'Marbrel%99s' x >$product"]),
    ("a link is on the payload's path", f"{LINK}/p/payload/VST3",
     ["mv p/payload/VST3 x; ln -s ../../x p/payload/VST3"]),
    ("an installed bundle is no link", f"{LINK}/r/plugins/{HD}",
     ["rm -r $old; ln -s x $old", "mv $old x; ln -s ../../../x $old"]),
    ("a receipt is no link", f"{LINK}/r/support/{RECEIPT}", ["rm $receipt; ln -s x $receipt"]),
    ("a run's directory is behind no link", f"{LINK}/r/support/Backups",
     ["mv r/support/Backups r/x; ln -s ../x r/support/Backups"]),
    ("a bundle in the payload is a directory", f"{MISSING}/p/payload/{HD}",
     ["rm -r $new", "rm -r $new; echo >$new"]),
    ("an installed bundle is a directory", f"{MISSING}/r/plugins/{HD}", ["rm -r $old; echo >$old"]),
    ("a bundle has a file", "Empty bundle refused",
     ["rm -r $new; mkdir -p $new/b/c", "rm -r $old; mkdir $old"]),
    ("a bundle has no link", "Symlink member refused",
     ["ln -s a $new/MacOS/x", "ln -s x $new/x", "ln -s .. $old/x", "ln -s x $old/MacOS/x"]),
    ("a payload is as listed", f"Package checksum mismatch: {HD}",
     ["echo x >$new/b", "mv $new/b $new/c", "echo >$new/.more"]),
    ("an installed bundle is as listed or the package's",
     f"Unknown or modified plugin preserved: {{}}/r/plugins/{HD}",
     ["echo x >$old/b", "echo >$old/x", "rm $old/b", "rm $receipt; echo x >$old/b"]),
    ("the first bundle is done before the second is looked at", LOADED,
     [f"echo x >p/payload/{LOW}/x; printf '#!/bin/sh\\nexit 0\\n' >lsof"]),
    ("not refused", "",
     ["mkdir $new/c $old/c", "mkfifo $new/f $old/f", "rm $receipt", "echo >$receipt.tmp",
      "printf Marbrel >$product", "rm -r r/plugins/VST3; echo >r/plugins/VST3",
      "printf 'Marbrel\\n%99s' x >$product"]),
))
def test_preflight_changes_nothing(studio, message, change):
    studio.package("p", files(1))
    studio.done("p")
    studio.sh(f"list=p/CONTENTS.sha256 product=p/PRODUCT.txt new=p/payload/{HD} "
              f"old=r/plugins/{HD} receipt=r/support/{RECEIPT}; {change}")
    before = disk(studio.place / "r")
    for options in [["--remove"], []] if message else [["--dry-run"], ["--dry-run", "--remove"]]:
        assert studio.on("p", *options) == studio.ends(message)
    assert disk(studio.place / "r") == before


@pytest.mark.parametrize("contents", titled(
    ("names with odd characters",
     dict.fromkeys([" \u00e9\x01'\"$`\\*\r", "--", "..a", "a..", "...", "\u00e9"], "x")),
    ("sizes around that of a block", {f"{size}": "\0" * size for size in (0, 65535, 65536, 65537)}),
    ("a manifest of several blocks", {f"{number}": "x" for number in range(800)}),
    ("directories deeper than files may be open", {"dir/" * 59 + "file": "x"})))
def test_installs_files_of_all_kinds(studio, contents):
    package = studio.package("p", {f"{HD}/{name}": content for name, content in contents.items()})
    receipt = (package / "CONTENTS.sha256").read_bytes()
    # The order of the lines does not count.
    (package / "CONTENTS.sha256").write_bytes(b"\n".join(reversed(receipt.split(b"\n")[:-1])))
    limit = 1024 if studio.emulator else 64  # an emulator needs some itself
    studio.done("p", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit)))
    assert disk(studio.plugins) == disk(package / "payload")
    assert (studio.support / RECEIPT).read_bytes() == receipt


@pytest.mark.parametrize("options, plugins, support", titled(
    ("below a relative HOME", [], "c/Library/Audio/Plug-Ins",
     "c/Library/Application Support/Orvelline"),
    ("below an empty test root", ["--test-root", ""], "plugins", "{}/support"),
    ("below a relative test root", ["--test-root", "f g/"], "f g/plugins", "{}/f g/support")))
def test_places(studio, options, plugins, support):
    studio.package("p", ONE)
    ended = studio.tool("--package", "p", *options, environment={"HOME": "c/"})
    run = ended.out.rpartition("/")[2]
    assert ended == (0, f"{INSTALLED}{support.format(studio.place)}/Backups/{run}", "")
    assert disk(studio.place / plugins) == disk(studio.place / "p/payload")
