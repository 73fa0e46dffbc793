"""The .deb in a root of its own: what it refuses, brings, and leaves when it goes."""

import pytest
from harness import ROOT

LIFE = """umask 077
cpack --config "$1/CPackConfig.cmake" -B . -G DEB
[ -z "$(dpkg-deb -c ./*.deb | grep -Ev '^([d-]rwxr-xr-x|-rw-r--r--|lrwx.*) root/root ')" ]
mkdir -p root/usr/bin root/usr/sbin root/var/lib/dpkg/info root/var/lib/dpkg/updates
touch root/var/lib/dpkg/status
dpkg="fakeroot dpkg --force-script-chrootless --force-depends --log=log --root=$PWD/root"
: it refuses to replace a link that is not its own
ln -s ../bin/lsof root/usr/sbin/lsof
$dpkg -i ./*.deb 2>&1 | grep 'is not of this package'
mv root/usr/sbin/lsof root/usr/bin
: it installs, twice, with its own link
$dpkg -i ./*.deb
[ "$(readlink root/usr/sbin/lsof)" = ../bin/lsof ]
$dpkg -i ./*.deb
: its make-package runs with its installer
root/usr/bin/make-package Marbrel VST3 "$2"/payload/VST3/* out | grep root/usr/bin/orvelline
[ "$(zgrep -x '.Os "Orvelline Installer" [0-9.]*' root/usr/share/man/man1/* | wc -l)" -eq 3 ]
: it leaves nothing, but a link in the place of its own
$dpkg --remove orvelline-installer
[ "$(find root/usr ! -type d)" = root/usr/bin/lsof ]
$dpkg -i ./*.deb
ln -sf elsewhere root/usr/sbin/lsof
$dpkg --purge orvelline-installer
[ "$(readlink root/usr/sbin/lsof)" = elsewhere ]
[ "$(find root/usr ! -type d | wc -l)" -eq 2 ]"""


@pytest.mark.once
def test_the_deb_from_a_refusal_to_its_removal(studio):
    cache = studio.run("cat", f"{studio.build}/CMakeCache.txt").out
    if "CMAKE_BUILD_TYPE:STRING=Release" not in cache or "-stdlib=" in cache:
        pytest.skip("needs a release build: any other asks for libraries that the root lacks")
    ended = studio.run("sh", "-euxc", LIFE, "sh", studio.build, ROOT / "examples/Marbrel-VST3")
    assert ended.status == 0, ended.err
