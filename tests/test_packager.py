"""Makes packages with tools/make-package, and tries what it has to refuse."""

import signal

import pytest
from harness import ENVIRONMENT, READY, ROOT, bits, disk

pytestmark = pytest.mark.once
# A bundle, a key that signs, and "tool", which makes a stand-in for a program.
PREPARED = """B=b/MarbrelHD.vst3; mkdir -p bin $B; echo 1 >$B/a; ssh-keygen -qt ed25519 -N '' -f key
tool() { printf '#!/bin/sh\\n%s\\n' "$2" >bin/$1; chmod +x bin/$1; }"""
HD, SIGNED = "Marbrel VST3 $B out", "--archive --sign key Marbrel VST3 $B out"


def make(studio, arguments, preparation):
    """Runs make-package after some preparation, both given as shell words."""
    return studio.sh(f"{preparation}\nexec '{ROOT}/tools/make-package' {arguments}", environment={
        "PATH": f"{studio.place}/bin:{studio.build}/tests:{ENVIRONMENT['PATH']}",
        "ORVELLINE_INSTALLER": "installer-under-test"})


@pytest.mark.parametrize("preparation, arguments, said", [
    # Another run comes first, after the first look at the place.
    *((f"tool installer-under-test '{first} o; echo \"{READY[1].strip()}\"'", arguments[:-2],
       "already exists: {0}/o") for first, arguments in [("mkdir", HD), ("touch", SIGNED)]),
    ("tool ssh-keygen 'exit 4'", SIGNED, "refused by ssh-keygen: status 4"),
    ("tool installer-under-test true", HD, "refused by installer-under-test: it is no installer"),
    ("", "Marbrel VST3 $B $B/out", "inside a bundle: {0}/b/MarbrelHD.vst3/out"),
    ("", "Marbrel VST3 $B --archive", "options stand before the product: --archive"),
    ("ulimit -f 0", HD, "File too large: out"),
    ("chmod 377 $B/a", HD, "not readable by its owner: {0}/b/MarbrelHD.vst3/a"),
    ("touch $B/.DS_Store", HD, "left by a file manager: {0}/b/MarbrelHD.vst3/.DS_Store"),
    ("touch \"$(printf '%s/x\\ny' $B)\"", HD, "newline in a name: {0}/b/MarbrelHD.vst3/x\\ny"),
    ("touch \"$(printf '%s/\\377' $B)\"", HD, "name not in UTF-8: {0}/b/MarbrelHD.vst3/\udcff"),
    ("touch $B/e\u0301 $B/\u00c9", HD, "names that differ in case or composition alone: "
     "{0}/b/MarbrelHD.vst3/e\u0301 and {0}/b/MarbrelHD.vst3/\u00c9"),
    *((f"tool installer-under-test 'kill -{number:d} $PPID'", HD, number) for number in (
        signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM))])
def test_says_one_line_or_dies_and_leaves_nothing(studio, preparation, arguments, said):
    ended = make(studio, arguments, f"{PREPARED}\n{preparation}")
    assert ended == ((-said, "", "") if isinstance(said, int) else (
        1, "", f"tools/make-package: {said.format(studio.place)}\n"))
    left = [path for part in (".make*", "out*", "o.*", "o/*") for path in studio.place.rglob(part)]
    assert left == []


def test_same_bundles_same_bytes(studio):
    names = "-", "d/-/ä", "d-/x\\ny", " *\t\x01", ".b"
    want = studio.package("-1", {f"VST3/MarbrelHD.vst3/{name}": name for name in names})
    # The same bundle once more, but for bits and dates.
    ended = studio.sh(f"""{PREPARED}\nchmod -R u=rwX,go=rX ./-1; cd ./-1/payload/VST3/*; mkdir empty
    chmod 755 .b; rm ../../../../$B/a; cp -R . ../../../../$B; cd ../../../../$B; chmod 7777 empty
    chmod 4710 .b; chmod 666 ./-; find . -exec touch -d @9 {{}} +""")
    assert ended == (0, "", "")
    for arguments, preparation, said in (
            ("Marbrel VST3 b/* -o", "umask 077", "{}/-o: verified by installer-under-test\n"),
            ("--archive Marbrel VST3 -1/payload/VST3/* one >&-", "", ""),
            ("--archive Marbrel VST3 ./MarbrelHD.vst3// ../two", "cd b; umask 077\n"
             "export LC_ALL=C GZIP=-1 TZ=EST5", "{}/two: verified by installer-under-test\n")):
        assert make(studio, arguments, preparation) == (0, said.format(studio.place), "")
    assert (disk(studio.place / "-o"), bits(studio.place / "-o")) == (disk(want), bits(want))
    assert (studio.place / "one").read_bytes() == (studio.place / "two").read_bytes()
