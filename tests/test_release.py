"""tools/release gives the same bytes twice, in surroundings that differ, and refuses the rest."""

import pytest
from harness import ROOT, disk

pytestmark = [pytest.mark.once, pytest.mark.target]
# What the programs that it runs would heed.
CALLER = """umask 077; export TZ=EST5 LC_ALL=C SOURCE_DATE_EPOCH=1 TAR_OPTIONS=--mode=700 GZIP=-1
export XZ_OPT=-0 XZ_DEFAULTS=-0 DPKG_DEB_COMPRESSOR_LEVEL=0 DPKG_DEB_COMPRESSOR_TYPE=none DESTDIR=/x
export CMAKE_INSTALL_MODE=ABS_SYMLINK CMAKE_GENERATOR=x CXX=x CXXFLAGS=-O0 LDFLAGS=-s"""


def test_the_same_bytes(studio):
    for place, how in ("a", "ssh-keygen -qt ed25519 -N '' -f key"), ("longer/b", CALLER):
        ended = studio.sh(f"""git clone -q '{ROOT}' {place}; mkdir {place}/build; {how}
        ln -s '{ROOT}/build/target' {place}/build; {place}/tools/release --sign key
        echo "maker $(cat key.pub)" >{place}/build/signers; cd {place}/dist; sha256sum -c SHA256SUMS
        ssh-keygen -Y verify -f ../build/signers -I maker -n orvelline-release -s *.sig <SHA256SUMS
        dpkg-deb -x ./*.deb ../deb; for program in ../deb/usr/bin/orvelline-*
        do grep "^# $(sha256sum <$program | cut -c 1-64)" SHA256SUMS; done""")
        assert ended[0] == 0, ended
    made, again = disk(studio.place / "a/dist"), disk(studio.place / "longer/b/dist")
    assert len(made) == 5 and [name for name in made if made[name] != again.get(name)] == []


def test_refusals_leave_the_old_ones(studio):
    studio.sh(f"""git clone -q '{ROOT}' a; cd a; mkdir -p dist build/target
    git tag | xargs -r git tag -d >&2; sed -i 's/ VERSION [0-9.]*/ VERSION 9/' CMakeLists.txt
    git config user.name a; git config user.email @; git commit -qam 9
    touch dist/old; cp tools/target/package-lock.json build/target/installed""")
    for change, said in [
            ("set -- --help", "usage: tools/release [--sign KEY]"),
            (":", "tools/release: CHANGELOG.md has no entry for 9"),
            ("echo '## [9] - ' >>CHANGELOG.md", "tools/release: the checkout has changes"),
            # There is no compiler; but it gets as far as to name the version.
            ("git commit -qam 9; git tag v9", "tools/release: making version 9"),
            ("git tag v8; git tag -d v9 >/dev/null", "tools/release: making version 9+g{}")]:
        ended = studio.sh(f'cd a; {change}; tools/release "$@"')
        head = studio.sh("git -C a rev-parse HEAD")[1][:12]
        assert ended[0] > 0 and ended[2].split("\n")[0] == said.format(head), ended
    assert disk(studio.place / "a/dist") == {"old": b""}
