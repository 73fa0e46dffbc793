"""tools/release gives the same bytes twice, in surroundings that differ, and refuses the rest."""

import pytest
from harness import ROOT, disk

pytestmark = [pytest.mark.once, pytest.mark.target]
OTHER = {"TZ": "Asia/Tokyo", "LC_ALL": "C", "SOURCE_DATE_EPOCH": "1"}


def clone(studio, name):
    """A clone of the commit that is checked out, which has the compiler at hand."""
    place = studio.place / name
    assert studio.sh(f"git clone -q {ROOT} {place}; mkdir {place}/build\n"
                     f"ln -s {ROOT}/build/target {place}/build")[0] == 0
    return place


def test_the_same_bytes(studio):
    one, other = clone(studio, "a"), clone(studio, "longer/b")
    for place, umask, environment in (one, 0o022, {}), (other, 0o077, OTHER):
        ended = studio.run(place / "tools/release", umask=umask, environment=environment)
        assert ended[0] == 0, ended
    made, again = disk(one / "dist"), disk(other / "dist")
    assert len(made) == 4 and [name for name in made if made[name] != again.get(name)] == []
    assert studio.run("sha256sum", "-c", "SHA256SUMS", cwd=one / "dist")[0] == 0
    packed = studio.sh("tar -tf *-macos-arm64.tar.gz", cwd=one / "dist")[1]
    for page in ROOT.glob("man/*.1"):
        assert f"/bin/{page.stem}\n" in packed and f"/share/man/man1/{page.name}\n" in packed


@pytest.mark.parametrize("change, said", [
    ("echo >>README.md", "the checkout has changes"),
    ("touch new", "the checkout has changes"),
    ("sed -i 's/ VERSION [0-9.]*/ VERSION 9.9/' CMakeLists.txt\n"
     "git -c user.name=a -c user.email=a@b commit -qam 9.9", "CHANGELOG.md has no entry for 9.9"),
])
def test_refusals(studio, change, said):
    place = clone(studio, "a")
    assert studio.sh(change, cwd=place)[0] == 0
    assert studio.run(place / "tools/release") == (1, "", f"tools/release: {said}\n")
