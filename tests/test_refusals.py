"""The command line, and every failure before the end of a dry run."""

import resource
import shlex

import pytest
from harness import HD, INSTALLED, RECEIPT, disk, files, table

ONE = {f"{HD}/a": "one"}


# Why the command fails; the command, where "tool" is the installer; the message.
@pytest.mark.parametrize("command, message", table("""
no package is named | tool --dry-run | Package directory required
a path is empty | tool --package p --package '' | Package directory required
the last option lacks its value | tool --package p --package | Unknown option: --package
a value is no word of its own | tool --package=p | Unknown option: --package=p
a path is used as typed | tool --package no/../p | Manifest missing: {}/no/../p/CONTENTS.sha256
a link is on the way | tool --package link/../p | Symlink path refused: {}/link
of two links the last counts | tool --package link/deep/no | Symlink path refused: {}/link/deep
a name is too long | tool --package $(printf %0300d) | filesystem error
the first bad option counts | cd gone; rmdir ../gone; tool --test-root x --no | filesystem error
HOME is not set | unset HOME; tool --package p | User directory unavailable
HOME is empty | HOME= tool --package formats | User directory unavailable
HOME counts after the product | HOME= tool --package mixed | Mixed product package refused
HOME counts before the format | HOME=link tool --package formats | Symlink path refused: link
not refused: the last of two values counts |
    tool --package --remove --remove --remove --dry-run --package q |
not refused: slashes and .. | tool --package home/../p// --dry-run --test-root y/../z |
"""))
def test_command_line(studio, command, message):
    studio.package("p", ONE)
    studio.package("q", {"Components/QuellotroneAU.component/a": ""}, "Quellotrone")
    studio.package("mixed", ONE, "Quellotrone")
    studio.package("formats", ONE | {"Components/MarbrelHDAU.component/a": ""})
    studio.sh("mkdir -p gone real/inner; ln -s inner real/deep; ln -s real link")
    tool = f'tool() {{ {shlex.join(studio.command())} "$@"; }}'
    assert studio.sh(f"{tool}; {command}") == studio.ends(message)


# Names in the shell code: the manifest, and functions that add a line or a path to it; PRODUCT.txt;
# the receipt; the new and the installed version of the first bundle.
WORDS = f"""list=p/CONTENTS.sha256 product=p/PRODUCT.txt receipt=r/support/{RECEIPT}
new=p/payload/{HD} old=r/plugins/{HD} digest=$(printf %064d)
line() {{ printf "$1\\n" >>$list; }}
path() {{ line "$digest  $1"; }}
"""


# A rule; the message if it is broken; the shell code that breaks it.
@pytest.mark.parametrize("message, change", table(r"""
a manifest is a file with a line | Empty manifest | rm $list; mkdir $list or
    rm -r r/plugins; : >$receipt or : >$receipt; echo >$new/x
a line is a digest, two spaces and a path | Malformed manifest |
    line '' or line "$digest  " or line "$digest *a" or line "$digest\t a" or printf 01 >>$list
a digest has 64 lower-case digits | Invalid hash |
    line "${digest%0}A  /a" or line "${digest%0}g  /a" or line "${digest%0}   /a"
a path is relative | Absolute manifest path refused | path /a or path //a or path / or path /../a
a path has no dots for a name | Unsafe manifest path | path . or path .. or path ./a or
    path a/./b or path a/../b or path a/.. or path a/../
a path is listed once | Duplicate manifest entry | path VST3/MarbrelHD.vst3/b
a path has two parts | Missing bundle | path VST3 or path PRODUCT.txt
a path begins with a format | Unexpected format | path x/ or path vst3/MarbrelHD.vst3/a
a bundle is known | Unexpected bundle identity |
    path VST3/ or path VST3/marbrelHD.vst3/a or path VST3/MarbrelHD.vst3x/a
a bundle has one format | Format mismatch |
    path VST3/MarbrelHDAU.component/a or path Components/MarbrelHD.vst3/a
a product is known | Unknown product | rm $product or printf '\nMarbrel\n' >$product or
    printf 'Marbrel\r\n' >$product or printf 'Marbrel%99s' x >$product
all bundles are of one product | Mixed product package refused | path VST3/Quellotrone.vst3/a
all bundles have one format | Use one format per package | path Components/MarbrelHDAU.component/a
the payload is behind no link | Symlink path refused: {}/p/payload/VST3 |
    mv p/payload/VST3 x; ln -s ../../x p/payload/VST3
an installed bundle is no link | Symlink path refused: {}/r/plugins/{HD} |
    rm -r $old; ln -s no $old or mv $old x; ln -s ../../../x $old
a receipt is no link | Symlink path refused: {}/r/support/{RECEIPT} | ln -sf no $receipt
the runs are behind no link | Symlink path refused: {}/r/support/Backups |
    mv r/support/Backups r/x; ln -s ../x r/support/Backups
a bundle in the payload is a directory | Bundle missing: {}/p/payload/{HD} |
    rm -r $new or rm -r $new; echo >$new
an installed bundle is a directory | Bundle missing: {}/r/plugins/{HD} | rm -r $old; echo >$old
a bundle has a file | Empty bundle refused | rm -r $new; mkdir -p $new/b/c or rm -r $old; mkdir $old
a bundle has no link | Symlink member refused | ln -s a $new/MacOS/x or ln -s no $old/x
the payload is as listed | Package checksum mismatch: {HD} | path VST3/MarbrelHD.vst3/ or
    path VST3/MarbrelHD.vst3//a or path VST3/MarbrelHD.vst3/b/ or
    echo x >$new/b or mv $new/b $new/c or echo >$new/.more
an installed bundle is the receipt's | Unknown or modified plugin preserved: {}/r/plugins/{HD} |
    echo x >$old/b or echo >$old/x or rm $old/b or rm $receipt; echo x >$old/b
the first bundle counts before the second | {LOADED} |
    echo >${new%HD*}LowCPU.vst3/x; ln -sf /bin/true lsof
not refused: what is no file | | mkdir $new/c $old/c or mkfifo $new/f $old/f or
    path VST3/MarbrelHD.vst3 or path VST3//MarbrelHD.vst3/a
not refused: what is missing or too much | | rm $receipt or echo >$receipt.tmp or
    rm -r r/plugins/VST3; echo >r/plugins/VST3 or
    printf Marbrel >$product or printf 'Marbrel\n%99s' x >$product
"""))
def test_verification_changes_nothing(studio, message, change):
    studio.package("p", files(1))
    studio.done("p")
    assert studio.sh(WORDS + change).status == 0
    before = disk(studio.place / "r")
    for options in [["--remove"], []] if message else [["--dry-run"], ["--dry-run", "--remove"]]:
        assert studio.on("p", *options) == studio.ends(message)
    assert disk(studio.place / "r") == before


CONTENTS = {
    "odd names": dict.fromkeys([" \u00e9\x01'\"$`\\*\r", "--", "..a", "a..", "...", "\u00e9"], ""),
    "sizes about that of a block": {f"{size}": "\0" * size for size in (0, 65535, 65536, 65537)},
    "a manifest of several blocks": {f"{number}": "x" for number in range(800)},
    "directories deeper than files may be open": {"dir/" * 59 + "file": "x"},
}


@pytest.mark.parametrize("which", CONTENTS)
def test_installs(studio, which):
    package = studio.package("p", {f"{HD}/{path}": text for path, text in CONTENTS[which].items()})
    receipt = (package / "CONTENTS.sha256").read_bytes()
    # The lines may be in any order, and the last one may lack its newline.
    (package / "CONTENTS.sha256").write_bytes(b"\n".join(reversed(receipt.split(b"\n")[:-1])))
    limit = 1024 if studio.emulator else 64  # an emulator opens some itself
    studio.done("p", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit)))
    assert disk(studio.plugins) == disk(package / "payload")
    assert (studio.support / RECEIPT).read_bytes() == receipt


@pytest.mark.parametrize("root, plugins, support", table("""
below a relative HOME | none | c/Library/Audio/Plug-Ins | c/Library/Application Support/Orvelline
below an empty test root | | plugins | {}/support
below a relative test root | f g/ | f g/plugins | {}/f g/support
"""))
def test_places(studio, root, plugins, support):
    studio.package("p", ONE)
    options = [] if root == "none" else ["--test-root", root]
    ended = studio.tool("--package", "p", *options, environment={"HOME": "c/"})
    run = ended.out.rpartition("/")[2]
    assert ended == (0, f"{INSTALLED}{support.format(studio.place)}/Backups/{run}", "")
    assert disk(studio.place / plugins) == disk(studio.place / "p/payload")
