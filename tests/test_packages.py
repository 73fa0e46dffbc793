"""Installs and removes the .deb in a separate root directory, and tries what it must refuse."""

import pytest
from harness import ROOT

LIFE = """umask 077
cpack --config "$1/CPackConfig.cmake" -B . -G DEB
[ -z "$(dpkg-deb -c ./*.deb | grep -Ev '^([d-]rwxr-xr-x|-rw-r--r--|lrwx.*) root/root ')" ]
mkdir -p root/usr/bin root/usr/sbin root/var/lib/dpkg/info root/var/lib/dpkg/updates
dpkg="fakeroot dpkg --force-script-chrootless --force-depends --log=log --root=$PWD/root"
ln -s ../bin/lsof root/usr/sbin/lsof
$dpkg -i ./*.deb 2>&1 | grep 'does not belong to this package'  # the link is not its own
mv root/usr/sbin/lsof root/usr/bin
$dpkg -i ./*.deb
$dpkg -i ./*.deb  # again, over its own link
root/usr/bin/make-package Marbrel VST3 "$2"/payload/VST3/* out | grep root/usr/bin/orvelline
[ "$(zgrep -x '.Os "Orvelline Installer" [0-9.]*' root/usr/share/man/man1/* | wc -l)" -eq 3 ]
$dpkg --remove orvelline-installer
[ "$(find root/usr ! -type d)" = root/usr/bin/lsof ]  # its own link is gone
$dpkg -i ./*.deb
ln -sf elsewhere root/usr/sbin/lsof
$dpkg --purge orvelline-installer
[ "$(readlink root/usr/sbin/lsof)" = elsewhere ]  # a link that is not its own stays"""


@pytest.mark.once
def test_the_deb_from_a_refusal_to_its_removal(studio):
    if not studio.build.endswith("/release"):
        pytest.skip("needs a release build: any other asks for libraries that the root lacks")
    ended = studio.run("sh", "-euxc", LIFE, "sh", studio.build, ROOT / "examples/Marbrel-VST3")
    assert ended.status == 0, ended.err
