"""What the packages hold, and that the .deb installs, runs and goes away in a root of its own."""

import re
import tarfile

import pytest
from harness import ROOT

# A root that has nothing but lsof, and dpkg's records of what the package depends on.
NEWROOT = """mkdir -p root/usr/bin root/var/lib/dpkg/info root/var/lib/dpkg/updates
cp /usr/bin/lsof root/usr/bin; libc=libc6:$(dpkg --print-architecture)
dpkg-query -s $libc lsof >root/var/lib/dpkg/status
cp /var/lib/dpkg/info/$libc.list /var/lib/dpkg/info/lsof.list root/var/lib/dpkg/info"""


def held(archive):
    """The mode, or the link's text, of each file in a tar archive, below its first directory."""
    with tarfile.open(archive) as entries:
        assert {(entry.uid, entry.gid) for entry in entries} == {(0, 0)}
        assert {entry.mode for entry in entries if entry.isdir()} == {0o755}
        return {re.sub(r"^(\./)?[^/]+/", "", entry.name): entry.linkname or entry.mode
                for entry in entries if not entry.isdir()}


def expected(page, zsh):
    found = {f"share/doc/orvelline-installer/{path.relative_to(ROOT)}": 0o644
             for pattern in ("*.md", "copyright", "docs/*.md", "fleet/**/*.*")
             for path in ROOT.glob(pattern)}
    for program in (path.stem for path in ROOT.glob("man/*.1")):
        found |= {f"bin/{program}": 0o755, f"share/man/man1/{program}.{page}": 0o644,
                  f"share/bash-completion/completions/{program}": 0o644,
                  f"share/zsh/{zsh}/_{program}": 0o644}
    return found


@pytest.mark.once
def test_packages(studio):
    # Nobody's umask may show in a package.
    ended = studio.sh(f"cpack --config '{studio.build}/CPackConfig.cmake' -B . -G 'DEB;TGZ'\n"
                      "dpkg-deb --fsys-tarfile ./*.deb >data.tar", umask=0o077)
    assert ended[0] == 0, ended
    assert held(next(studio.place.glob("*.tar.gz"))) == expected("1", "site-functions")
    assert held(studio.place / "data.tar") == expected("1.gz", "vendor-completions") | {
        "sbin/lsof": "../bin/lsof"}
    assert studio.sh("dpkg-deb -f ./*.deb Depends")[1].startswith("lsof, libc6 (>= ")

    usr = studio.place / "root/usr"
    dpkg = 'fakeroot dpkg --force-script-chrootless --log=log --root="$PWD/root"'
    run = f"{usr}/bin/orvelline-installer --package '{ROOT}/examples/Marbrel-VST3' --test-root r"
    assert studio.sh(f"{NEWROOT}\n{dpkg} --install ./*.deb\n{run}\n{run} --remove")[0] == 0
    assert studio.sh(f"{dpkg} --purge orvelline-installer")[0] == 0
    assert [path for path in usr.rglob("*") if not path.is_dir()] == [usr / "bin/lsof"]
    # Where the two directories are one, the link would take the place of lsof.
    (usr / "sbin").symlink_to("bin")
    ended = studio.sh(f"{dpkg} --install ./*.deb")
    assert ended[0] == 1 and "are one directory" in ended[2]
