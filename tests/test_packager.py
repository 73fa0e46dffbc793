"""Makes packages with tools/make-package, and tries what it has to refuse."""

import pytest
from harness import ENVIRONMENT, HD, ROOT

pytestmark = pytest.mark.once
# A key that signs, and "tool", which makes a stand-in for a program.
PREPARED = """ssh-keygen -qt ed25519 -N '' -f key
mkdir bin
tool() { printf '#!/bin/sh\\n%s\\n' "$2" >bin/$1; chmod +x bin/$1; }"""
BUNDLE = f"1/payload/{HD}"
PLAIN, SIGNED = f"Marbrel VST3 {BUNDLE} out", f"--archive --sign key Marbrel VST3 {BUNDLE} out"


def make(studio, preparation, arguments):
    return studio.sh(f"{preparation}\nexec '{ROOT}/tools/make-package' {arguments}", environment={
        "PATH": f"{studio.place}/bin:{studio.build}/tests:{ENVIRONMENT['PATH']}",
        "ORVELLINE_INSTALLER": "installer-under-test"})


@pytest.mark.parametrize("preparation, arguments, said", [
    # Another run comes first, after the first look at the place.
    ("tool installer-under-test 'touch out; echo \"READY: \"'", SIGNED, "already exists: {}/out"),
    ("tool ssh-keygen 'exit 4'", SIGNED, "refused by ssh-keygen: status 4"),
    ("ulimit -f 0", PLAIN, "File too large: out"),
    (f"ln -s a {BUNDLE}/l", PLAIN, f"symbolic link: {{}}/{BUNDLE}/l"),
    (f"touch {BUNDLE}/.DS_Store", PLAIN, f"left by a file manager: {{}}/{BUNDLE}/.DS_Store"),
    (f"touch {BUNDLE}/e\u0301 {BUNDLE}/\u00c9", PLAIN, "names that differ in case or composition "
     f"alone: {{0}}/{BUNDLE}/e\u0301 and {{0}}/{BUNDLE}/\u00c9"),
    ("tool installer-under-test 'kill $PPID'", PLAIN, "")])
def test_says_one_line_or_dies_and_leaves_nothing(studio, preparation, arguments, said):
    studio.package("1", {f"{HD}/a": ""})
    said = said and f"tools/make-package: {said.format(studio.place)}\n"
    assert make(studio, f"{PREPARED}\n{preparation}", arguments) == (1 if said else -15, "", said)
    assert [*studio.place.glob(".make*"), *studio.place.glob("out?*")] == []


def test_same_bundles_same_bytes(studio):
    studio.package("1", {f"{HD}/{name}": name for name in ("-", "d/-/ä", "d-/x\\ny", " *")})
    for preparation, arguments in [
            (f"chmod 755 {BUNDLE}/-", f"--archive Marbrel VST3 {BUNDLE} one"),
            (f"umask 077; chmod 770 {BUNDLE}/-", f"--archive Marbrel VST3 {BUNDLE}// two")]:
        assert make(studio, f"touch {BUNDLE}/-; {preparation}", arguments).status == 0
    assert (studio.place / "one").read_bytes() == (studio.place / "two").read_bytes()
