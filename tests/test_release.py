"""tools/release gives the same bytes twice, in surroundings that differ, and refuses the rest."""

import pytest
from harness import ROOT, disk

pytestmark = [pytest.mark.once, pytest.mark.target]
CALLER = """umask 077
export TZ=EST5 LC_ALL=C SOURCE_DATE_EPOCH=1 TAR_OPTIONS=--mode=700 GZIP=-1 DESTDIR=/x LDFLAGS=-s
export XZ_OPT=-0 DPKG_DEB_COMPRESSOR_LEVEL=0 CMAKE_INSTALL_MODE=ABS_SYMLINK CXXFLAGS=-O0"""


def test_the_same_bytes(studio):
    assert studio.run("ssh-keygen", "-qt", "ed25519", "-N", "", "-f", "key").status == 0
    for place, caller in ("a", ""), ("longer/b", CALLER):
        ended = studio.sh(f"""git clone -q '{ROOT}' {place}
        mkdir {place}/build
        ln -s '{ROOT}/build/target' {place}/build
        {caller}
        {place}/tools/release --sign key
        cd {place}/dist
        sha256sum -c SHA256SUMS
        [ $(grep -c '^# .*/bin/orvelline-' SHA256SUMS) -eq 4 ]
        ssh-keygen -Y check-novalidate -n orvelline-release -s *.sig <SHA256SUMS""")
        assert ended.status == 0
    made, again = disk(studio.place / "a/dist"), disk(studio.place / "longer/b/dist")
    assert len(made) == 5 and [name for name in made if made[name] != again.get(name)] == []


def test_refusals_leave_the_old_ones(studio):
    # The second has no compiler; but it gets as far as to name the version.
    ended = studio.sh(f"""git clone -q --no-tags '{ROOT}' a
    git -C a tag v8
    mkdir -p a/dist/old a/build/target
    cp a/tools/target/package-lock.json a/build/target/installed
    touch a/new
    ! a/tools/release
    rm a/new
    ! a/tools/release""")
    assert "has changes\n" in ended.err and "+g" in ended.err, ended
    assert disk(studio.place / "a/dist") == {"old": "directory"}
