"""Makes a release twice, which must give the same bytes. A refusal must keep the old release."""

import pytest
from harness import ROOT, disk

pytestmark = [pytest.mark.once, pytest.mark.target, pytest.mark.skipif(
    'os.confstr("CS_GNU_LIBC_VERSION") != "glibc 2.36"', reason="a release is made on Debian 12")]
CALLER = """umask 077
export TZ=EST5 LC_ALL=C SOURCE_DATE_EPOCH=1 TAR_OPTIONS=--mode=700 GZIP=-1 DESTDIR=/x LDFLAGS=-s
export XZ_OPT=-0 DPKG_DEB_COMPRESSOR_LEVEL=0 CMAKE_INSTALL_MODE=ABS_SYMLINK CXXFLAGS=-O0
echo docs/ignored.md >longer/b/.git/info/exclude
touch longer/b/docs/ignored.md"""
REFUSALS = {
    "a file is new, and the last release was killed between its renames": (
        "mv a/dist a/dist.old; touch a/new", "the checkout has changes:\n?? new"),
    "the commit has another tag": ("git -C a tag v8", "the tag v8 is of another version"),
    "the key cannot sign": ("touch k; set -- --sign k", "cannot sign with {}/k"),
    "another release is being made": ("exec 8<a; flock 8", "another release is being made"),
    "there is no repository": ("rm -r a/.git", "this is not a checkout of a Git repository"),
}


def test_the_same_bytes_in_other_surroundings(studio):
    for place, caller in ("a", "ssh-keygen -qt ed25519 -N '' -f key"), ("longer/b", CALLER):
        ended = studio.sh(f"""git clone -q '{ROOT}' {place}
        mkdir {place}/build
        ln -s '{ROOT}/build/target' {place}/build
        {caller}
        {place}/tools/release --sign key
        cd {place}/dist
        sha256sum -c SHA256SUMS
        [ $(grep -c '^# .*/bin/orvelline-' SHA256SUMS) -eq 4 ]
        [ -z "$(tar -tzf *-linux-*.gz | grep '/$')" ]
        ssh-keygen -Y check-novalidate -n orvelline-release -s *.sig <SHA256SUMS""")
        assert ended.status == 0, ended.err
    assert studio.run("diff", "-r", "a/dist", "longer/b/dist") == (0, "", "")


@pytest.mark.parametrize("code, said", REFUSALS.values(), ids=REFUSALS)
def test_the_old_release_stays_if(studio, code, said):
    ended = studio.sh(f"git clone -q --no-tags '{ROOT}' a; mkdir -p a/dist/old; {code}\n"
                      'a/tools/release "$@"')
    assert ended[:2] == (1, "") and ended.err.endswith(f": {said.format(studio.place)}\n"), ended
    assert disk(studio.place / "a/dist") == {"old": "directory"}
