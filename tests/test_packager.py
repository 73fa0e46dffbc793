"""Makes packages with tools/make-package, and tries what it has to refuse."""

import os
import tarfile

import pytest
from harness import ENVIRONMENT, ROOT, bits, disk

pytestmark = pytest.mark.once
HD = "Marbrel VST3 b/MarbrelHD.vst3 out"
TWO = "Marbrel VST3 b/* c/* out"
# The last one has every byte that a name can hold, but for CR, and for letters twice.
ODD = ["-", " a ", "x\\ny", "*", "d/-/\t", ".b",
       os.fsdecode(bytes(set(range(1, 256)) - set(b"\n\r/" + bytes(range(65, 91)))))]


def make(studio, arguments, preparation):
    """Runs make-package after some preparation, both given as shell words."""
    return studio.sh(f'{preparation}\nexec "$PROGRAM" {arguments}', environment={
        "PATH": f"{studio.place}/bin:{studio.build}/tests:{ENVIRONMENT['PATH']}",
        "PROGRAM": f"{ROOT}/tools/make-package", "ORVELLINE_INSTALLER": "installer-under-test"})


@pytest.mark.parametrize("preparation, arguments, message", [
    ("mkdir out", HD, "already exists: {}/out"),
    ("mv b/* c/d; ln -s ../c/d b/MarbrelHD.vst3", HD, "symbolic link: {}/b/MarbrelHD.vst3"),
    ("mv c/* c/Quellotrone.vst3", TWO, "no bundle of Marbrel in VST3: Quellotrone.vst3"),
    ("mv c/* c/MarbrelHD.vst3", TWO, "given twice: MarbrelHD.vst3"),
    ("cd b/*; mkdir y; ln -s none y/l", HD, "symbolic link: {}/b/MarbrelHD.vst3/y/l"),
    ("cd b/*; touch .DS_Store", HD, "left by a file manager: {}/b/MarbrelHD.vst3/.DS_Store"),
    ("cd b/*; mkdir y; touch y/._a", HD, "left by a file manager: {}/b/MarbrelHD.vst3/y/._a"),
    ("cd b/*; touch \"$(printf 'x\\ny')\"", HD, "newline in a name: {}/b/MarbrelHD.vst3/x"),
    ("cd b/*; touch \"$(printf 'x\\r')\"", HD, "carriage return at the end of a name: {}/b/"),
    ("cd b/*; mkfifo f", HD, "neither file nor directory: {}/b/MarbrelHD.vst3/f"),
    ("rm -r b/*; touch b/MarbrelHD.vst3", HD, "no directory: {}/b/MarbrelHD.vst3"),
    ("rm b/*/a", HD, "empty bundle: {}/b/MarbrelHD.vst3"),
    ("cd b/*; touch A", HD, "names that differ in case alone: vst3/marbrelhd.vst3/a"),
    ("chmod 377 b/*/a", HD, "not readable by its owner: {}/b/MarbrelHD.vst3/a"),
    ("chmod 577 b/*", HD, "not writable by its owner: {}/b/MarbrelHD.vst3"),
    ("mkdir bin; ln -s /bin/false bin/installer-under-test", HD, "refused by installer-under-test"),
])
def test_refuses_and_leaves_nothing_behind(studio, preparation, arguments, message):
    studio.sh("mkdir b c b/MarbrelHD.vst3 c/MarbrelLowCPU.vst3; "
              f"tee b/MarbrelHD.vst3/a c/MarbrelLowCPU.vst3/a; {preparation}")
    before = sorted(studio.place.iterdir())
    status, out, err = make(studio, arguments, "")
    assert (status, out, err.count("\n")) == (1, "", 1)
    assert f"tools/make-package: {message.format(studio.place)}" in err
    assert sorted(studio.place.iterdir()) == before


@pytest.mark.parametrize("tar", ["tar", "bsdtar"])
def test_same_bundles_same_bytes(studio, tar):
    names = [*(f"HD.vst3/{name}" for name in ODD), "LowCPU.vst3/m/n", "LowCPU.vst3/m-n"]
    want = studio.package("-1", {f"VST3/Marbrel{name}": ascii(name) for name in names})
    # The same bundles once more, but for bits, dates and owner.
    studio.sh(f"mkdir bin; ln -s /usr/bin/{tar} bin/tar; cd ./-1; chmod -R u=rwX,go=rX .; "
              "cd payload/VST3; mkdir MarbrelHD.vst3/empty; chmod 705 MarbrelHD.vst3/empty; "
              "umask 077; cp -R . ../../../2; chmod 664 MarbrelHD.vst3/.b; "
              "find . -exec touch -d @9 {} +; chown -R 7 . || :")
    for arguments, preparation, proof in (
            ("Marbrel VST3 -1/payload/VST3/* -o", "umask 077; unset ORVELLINE_INSTALLER; "
             'cp "$PROGRAM" bin; export CDPATH=. PROGRAM=bin/make-package', "not tried, as"),
            ("--archive Marbrel VST3 -1/payload/VST3/* -one", "", "verified by"),
            ("--archive Marbrel VST3 ./MarbrelLowCPU.vst3// MarbrelHD.vst3/ ../two", "cd 2; "
             "umask 077; export LC_ALL=C.UTF-8 GZIP=-1 TAR_OPTIONS=-v TZ=EST5", "verified by")):
        status, out, err = make(studio, arguments, preparation)
        assert (status, err) == (0, "") and f": {proof}" in out
    assert disk(studio.place / "-o") == disk(want) and bits(studio.place / "-o") == bits(want)
    assert (studio.place / "-one").read_bytes() == (studio.place / "two").read_bytes()
    with tarfile.open(studio.place / "-one") as archive:
        assert archive.getnames() == sorted(archive.getnames())
