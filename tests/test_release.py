"""tools/release gives the same bytes twice, in surroundings that differ, and refuses the rest."""

import pytest
from harness import ROOT, disk

pytestmark = [pytest.mark.once, pytest.mark.target]


def clone(studio, name):
    """A clone of the commit that is checked out, which has the compiler at hand."""
    place = studio.place / name
    assert studio.sh(f"git clone -q '{ROOT}' {place}; mkdir {place}/build\n"
                     f"ln -s '{ROOT}/build/target' {place}/build")[0] == 0
    return place


def test_the_same_bytes(studio):
    one, other = clone(studio, "a"), clone(studio, "longer/b")
    for place, how in (one, ":"), (other, "umask 077; export TZ=EST5 LC_ALL=C SOURCE_DATE_EPOCH=1"):
        ended = studio.sh(f"{how}; cd {place}; tools/release; cd dist; sha256sum -c SHA256SUMS")
        assert ended[0] == 0, ended
    made, again = disk(one / "dist"), disk(other / "dist")
    assert len(made) == 4 and [name for name in made if made[name] != again.get(name)] == []


def test_refusals(studio):
    place = clone(studio, "a")
    for change, said in [
            ("touch new", "the checkout has changes"),
            ("rm new; sed -i 's/ VERSION [0-9.]*/ VERSION 9/' CMakeLists.txt",
             "the checkout has changes"),
            ("git -c user.name=a -c user.email=@ commit -am 9", "CHANGELOG.md has no entry for 9")]:
        assert studio.sh(change, cwd=place)[0] == 0
        assert studio.run(place / "tools/release") == (1, "", f"tools/release: {said}\n")
