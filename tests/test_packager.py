"""Makes packages with tools/make-package, and tries what it has to refuse."""

import signal

import pytest
from harness import ENVIRONMENT, READY, ROOT, bits, disk

pytestmark = pytest.mark.once
# A bundle, a key that signs, and "tool", which makes a stand-in for a program.
PREPARED = """B=b/MarbrelHD.vst3; mkdir -p bin $B; echo 1 >$B/a; ssh-keygen -qt ed25519 -N '' -f key
tool() { printf '#!/bin/sh\\n%s\\n' "$1" >bin/$2; chmod +x bin/$2; }"""
INSTALLER = "installer-under-test"
VERIFIED = f"{READY[1].strip()}\"' {INSTALLER}"
HD = "Marbrel VST3 $B out"
SIGNED = "--archive --sign key Marbrel VST3 $B out"
# Every character of ASCII that a name may have, but for letters twice; and what sorts in odd ways.
ODD = ["".join(chr(code) for code in range(1, 128) if chr(code) not in "\n\r/" and
               not chr(code).isupper()), "-", "d/-/ä", "d-/x\\ny", ".b"]


def make(studio, arguments, preparation):
    """Runs make-package after some preparation, both given as shell words."""
    return studio.sh(f'{preparation}\nexec "$PROGRAM" {arguments}', environment={
        "PATH": f"{studio.place}/bin:{studio.build}/tests:{ENVIRONMENT['PATH']}",
        "PROGRAM": f"{ROOT}/tools/make-package", "ORVELLINE_INSTALLER": INSTALLER})


@pytest.mark.parametrize("preparation, arguments, message", [
    # Another run comes first, after the first look.
    (f"tool 'mkdir o; echo \"{VERIFIED}", "Marbrel VST3 $B o", "already exists: {0}/o"),
    (f"tool '>o; echo \"{VERIFIED}", SIGNED[:-2], "already exists: {0}/o"),
    ("", "Marbrel VST3 $B /", "already exists: /"),
    ("", "Marbrel VST3 $B $B/out", "inside a bundle: {0}/b/MarbrelHD.vst3/out"),
    ("", "Marbrel VST3 $B --archive", "options stand before the product: --archive"),
    ("", "Marbrel VST3 $B b/../$B/ out", "given twice: MarbrelHD.vst3"),
    ("mv $B d; ln -s ../d $B", HD, "symbolic link: {0}/b/MarbrelHD.vst3"),
    ("mkfifo $B/f", HD, "neither file nor directory: {0}/b/MarbrelHD.vst3/f"),
    ("mkdir $B/y; touch $B/y/._a", HD, "left by a file manager: {0}/b/MarbrelHD.vst3/y/._a"),
    ("touch \"$(printf '%s/x\\ny' $B)\"", HD, "newline in a name: {0}/b/MarbrelHD.vst3/x\\ny"),
    ("touch \"$(printf '%s/\\377' $B)\"", HD, "name not in UTF-8: {0}/b/MarbrelHD.vst3/\udcff"),
    ("touch $B/e\u0301 $B/\u00c9", HD, "names that differ in case or composition alone: "
     "{0}/b/MarbrelHD.vst3/e\u0301 and {0}/b/MarbrelHD.vst3/\u00c9"),
    ("chmod 377 $B/a", HD, "not readable by its owner: {0}/b/MarbrelHD.vst3/a"),
    ("ulimit -f 0", HD, "File too large: out"),
    ("ORVELLINE_INSTALLER=true", HD, "refused by true: it is no installer"),
    (f"tool 'echo 1 >&2; echo 2 >&2; exit 1' {INSTALLER}", HD, f"refused by {INSTALLER}: 2"),
    ("tool 'exit 4' ssh-keygen", SIGNED, "refused by ssh-keygen: status 4"),
    *((f"tool 'kill -{end} $PPID' {INSTALLER}", HD, end) for end in "HUP INT QUIT TERM".split())])
def test_leaves_one_line_or_the_signal_and_nothing_else(studio, preparation, arguments, message):
    number = getattr(signal, f"SIG{message}", -1)
    said = "" if number > 0 else f"tools/make-package: {message.format(studio.place)}\n"
    assert make(studio, arguments, f"{PREPARED}\n{preparation}") == (-number, "", said)
    assert [left for part in (".make*", "out*", "o.*", "o/*") for left in studio.place.rglob(part)
            ] == []


def test_same_bundles_same_bytes(studio):
    want = studio.package("-1", {**{f"VST3/MarbrelHD.vst3/{name}": ascii(name) for name in ODD},
                                 "VST3/MarbrelLowCPU.vst3/m": "m"})
    # The same bundles once more, but for bits and dates; and a build that is reached by a link.
    ended = studio.sh(f"""{PREPARED}\nchmod -R u=rwX,go=rX ./-1; cd ./-1/payload/VST3
    mkdir MarbrelHD.vst3/empty; chmod 755 MarbrelHD.vst3/.b; cp -R . ../../../2; cd ../../../2
    chmod 7777 MarbrelHD.vst3/empty; chmod 4710 MarbrelHD.vst3/.b; chmod 666 MarbrelHD.vst3/-
    find . -exec touch -d @9 {{}} +; cd ..; mkdir -p t/tools t/build/release
    cp '{ROOT}/tools/make-package' t/tools; ln -s ../t/tools/make-package bin
    ln -s '{studio.build}/tests/installer-under-test' t/build/release/orvelline-installer""")
    assert ended == (0, "", "")
    own = "verified by {0}/t/build/release/orvelline-installer"
    for arguments, preparation, said in (
            ("Marbrel VST3 2/* -o", "umask 077", f"{{0}}/-o: verified by {INSTALLER}\n"),
            ("--archive Marbrel VST3 -1/payload/VST3/* -one", "PROGRAM=bin/make-package; unset "
             "ORVELLINE_INSTALLER", f"{{0}}/-one: {own}\n"),
            ("--archive --sign ../key Marbrel VST3 ./MarbrelLowCPU.vst3// M*HD.vst3 ../two >&-",
             "cd 2; umask 077; export LC_ALL=C GZIP=-1 TZ=EST5", "")):
        assert make(studio, arguments, preparation) == (0, said.format(studio.place), "")
    assert (disk(studio.place / "-o"), bits(studio.place / "-o")) == (disk(want), bits(want))
    assert (studio.place / "-one").read_bytes() == (studio.place / "two").read_bytes()
    assert studio.sh("""echo "maker $(cat key.pub)" >signers
    ssh-keygen -q -Y verify -f signers -I maker -n orvelline-package -s two.sig <two""") == (
        0, "", "")
