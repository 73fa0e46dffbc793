"""The .deb refuses a foreign lsof, installs, runs and goes away, in a root of its own."""

import pytest
from harness import ROOT

TRIED = """umask 077
cpack --config "$1/CPackConfig.cmake" -B . -G DEB
[ -z "$(dpkg-deb -c ./*.deb | grep -Ev '^([d-]rwxr-xr-x|-rw-r--r--|lrwx.*) root/root ')" ]
mkdir -p root/usr/bin root/usr/sbin root/var/lib/dpkg/info root/var/lib/dpkg/updates
touch root/var/lib/dpkg/status
dpkg="fakeroot dpkg --force-script-chrootless --force-depends --log=log --root=$PWD/root"
ln -s ../bin/lsof root/usr/sbin/lsof
$dpkg -i ./*.deb 2>&1 | grep 'is not of this package'
mv root/usr/sbin/lsof root/usr/bin
$dpkg -i ./*.deb
readlink root/usr/sbin/lsof
$dpkg -i ./*.deb
root/usr/bin/make-package Marbrel VST3 "$2"/payload/VST3/* out | grep root/usr/bin/orvelline
[ "$(zgrep -x '.Os "Orvelline Installer" [0-9.]*' root/usr/share/man/man1/* | wc -l)" -eq 3 ]
$dpkg --purge orvelline-installer
[ "$(find root/usr ! -type d)" = root/usr/bin/lsof ]"""


@pytest.mark.once
def test_packages(studio):
    cache = studio.run("cat", f"{studio.build}/CMakeCache.txt").out
    if "CMAKE_BUILD_TYPE:STRING=Release" not in cache or "-stdlib=" in cache:
        pytest.skip("needs a release build: any other asks for libraries that the root lacks")
    ended = studio.run("sh", "-euxc", TRIED, "sh", studio.build, ROOT / "examples/Marbrel-VST3")
    assert ended.status == 0
