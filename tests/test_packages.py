"""What the packages hold, and that the .deb installs, runs and goes away in a root of its own."""

import re
from pathlib import Path

import pytest
from harness import ROOT

# Nobody's umask or account may show in a package. What stands in the place of the link to lsof is
# refused, before a version is installed and after, and so is /usr/sbin as a link to /usr/bin.
TRIED = """umask 077; cpack --config "$1/CPackConfig.cmake" -B . -G 'DEB;TGZ'
dpkg-deb --fsys-tarfile ./*.deb >data.tar; gzip -dc ./*.tar.gz >archive.tar
if cat data.tar archive.tar | tar -tvif - | grep -Ev '^([d-]rwxr-xr-x|-rw-r--r--|lrwx.*) root/root '
then exit 1; fi; umask 022
mkdir -p root/usr/bin root/usr/sbin root/var/lib/dpkg/info root/var/lib/dpkg/updates
cp /usr/bin/lsof root/usr/bin; touch root/var/lib/dpkg/status
dpkg() {
    fakeroot dpkg --force-script-chrootless --force-depends --log=log --root="$PWD/root" "$@"
}
link=root/usr/sbin/lsof; ln -s ../bin/lsof $link; ! dpkg -i ./*.deb; rm $link; dpkg -i ./*.deb
dpkg -i ./*.deb; root/usr/bin/orvelline-installer --package "$2" --test-root r
ln -s root/usr/bin/make-package make; ./make Marbrel VST3 "$2"/payload/VST3/* out | grep usr/bin/orv
[ "$(zgrep -hx ".Os Orvelline Installer $3" root/usr/share/man/man1/* | wc -l)" -eq 3 ]
ln -sf true $link; ! dpkg -i ./*.deb; ln -sf ../bin/lsof $link; dpkg --purge orvelline-installer
[ "$(find root/usr ! -type d)" = root/usr/bin/lsof ]; ln -s bin root/usr/sbin; ! dpkg -i ./*.deb"""


@pytest.mark.once
def test_packages(studio):
    cache = Path(studio.build, "CMakeCache.txt").read_text()
    if "CMAKE_BUILD_TYPE:STRING=Release" not in cache or "-stdlib=" in cache:
        pytest.skip("needs a release build: any other asks for libraries that the root lacks")
    version = re.search(r" VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
    ended = studio.run("sh", "-euc", TRIED, "sh", studio.build, ROOT / "examples/Marbrel-VST3",
                       version)
    refused = [ended[2].count(why) for why in ("is not of this package", "are one directory")]
    assert (ended[0], refused) == (0, [2, 1]), ended
