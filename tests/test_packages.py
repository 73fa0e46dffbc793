"""What the packages hold, and that the .deb installs, runs and goes away in a root of its own."""

import re
import tarfile

import pytest
from harness import INSTALLED, REMOVED, ROOT

PROGRAMS = [page.stem for page in ROOT.glob("man/*.1")]
DOCUMENTS = "*.md", "copyright", "docs/*.md", "examples/fleet/*"
CONTROL = (r"\d+\.\d+\.\d+\|sound\|optional\|Orvelline .* <.*@.*>\|lsof, libc6 \(>= [0-9.]+\)\|"
           r".{20,80}\n .{40,}")
# A root that has nothing but lsof, and dpkg's records of what the package depends on.
NEWROOT = """mkdir -p $0/usr/bin $0/var/lib/dpkg/info $0/var/lib/dpkg/updates
libc=libc6:$(dpkg --print-architecture)
cp /usr/bin/lsof $0/usr/bin
dpkg-query -s $libc lsof >$0/var/lib/dpkg/status
cp /var/lib/dpkg/info/$libc.list /var/lib/dpkg/info/lsof.list $0/var/lib/dpkg/info"""


def held(archive):
    """The mode, or the link's text, of each file in a tar archive, below its first directory."""
    with tarfile.open(archive) as entries:
        assert {(entry.uid, entry.gid) for entry in entries} == {(0, 0)}
        assert {entry.mode for entry in entries if entry.isdir()} == {0o755}
        return {re.sub(r"^(\./)?[^/]+/", "", entry.name): entry.linkname or entry.mode
                for entry in entries if not entry.isdir()}


def expected(page, zsh):
    names = [f"share/doc/orvelline-installer/{path.relative_to(ROOT)}"
             for pattern in DOCUMENTS for path in ROOT.glob(pattern)]
    for program in PROGRAMS:
        names += [f"share/bash-completion/completions/{program}", f"share/zsh/{zsh}/_{program}",
                  f"share/man/man1/{program}.{page}"]
    return dict.fromkeys(names, 0o644) | {f"bin/{program}": 0o755 for program in PROGRAMS}


@pytest.mark.once
def test_packages(studio):
    # Nobody's umask may show in a package.
    ended = studio.run("cpack", "--config", f"{studio.build}/CPackConfig.cmake", "-B", ".",
                       "-G", "DEB;TGZ", umask=0o077)
    assert ended[0] == 0, ended
    assert held(next(studio.place.glob("*.tar.gz"))) == expected("1", "site-functions")
    deb = next(studio.place.glob("*.deb"))
    assert studio.sh(f"dpkg-deb --fsys-tarfile {deb} >data.tar")[0] == 0
    assert held(studio.place / "data.tar") == expected("1.gz", "vendor-completions") | {
        "sbin/lsof": "../bin/lsof"}
    control = studio.run("dpkg-deb", "-W", "--showformat=${Version}|${Section}|${Priority}|"
                         "${Maintainer}|${Depends}|${Description}", deb)[1]
    assert re.fullmatch(CONTROL, control, re.S), control

    root, merged = studio.place / "root", studio.place / "merged"
    dpkg = "fakeroot", "dpkg", "--force-script-chrootless", f"--log={studio.place}/log"
    for place in root, merged:
        assert studio.run("sh", "-euc", NEWROOT, place)[0] == 0
    assert studio.run(*dpkg, f"--root={root}", "--install", deb)[0] == 0
    assert (root / "usr/sbin/lsof").resolve() == root / "usr/bin/lsof"
    for options, said in ([], INSTALLED), ([], INSTALLED), (["--remove"], REMOVED):
        assert studio.run(root / "usr/bin/orvelline-installer", "--test-root", "r", "--package",
                          ROOT / "examples/Marbrel-VST3", *options)[1].startswith(said)
    assert studio.run(*dpkg, f"--root={root}", "--purge", "orvelline-installer")[0] == 0
    left = [path for path in root.glob("usr/**/*") if not path.is_dir()]
    assert left == [root / "usr/bin/lsof"]
    # Where the two directories are one, the link would take the place of lsof.
    (merged / "usr/sbin").symlink_to("bin")
    ended = studio.run(*dpkg, f"--root={merged}", "--install", deb)
    assert ended[0] == 1 and "are one directory" in ended[2]
    assert not (merged / "usr/bin/lsof").is_symlink()
