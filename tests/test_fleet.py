"""Runs the commands of docs/fleet.md, one after the other, on two machines' test roots."""

import re
import shutil

import pytest
from harness import ROOT, blocks, disk, write

pytestmark = pytest.mark.once
# studio-2 refuses its first try, and studio-1 each one until studio-2 has the upgrade.
IN_USE = """case $2 in */studio-2/*) mkdir tried 2>/dev/null && exit 0 ;;
*) cmp build/fleet/studio-2/support/*.sha256 examples/Marbrel-VST3-next/*.sha256 || exit 0; esac"""


def play(studio, code):
    """Runs a play on more machines than forks; gives each one's changes and failures, and why."""
    out = studio.sh(code, environment={"ANSIBLE_FORKS": "1", "ANSIBLE_PIPELINING": "1"})[1]
    recap = re.findall(r"^(studio-\d) .* changed=(\d+) .* failed=(\d+)", out, re.M)
    told = re.findall(r'^ +"(studio-\d: .*)"|FAILED! .*"msg": "(.*)"', out, re.M)
    return {name: (int(changed), int(bad)) for name, changed, bad in recap}, told


@pytest.mark.long
def test_fleet(studio):
    shutil.copytree(ROOT / "examples", studio.place / "examples")
    for name in "installer", "repair":
        program = f'#!/bin/sh\ncd {studio.place}\n{studio.build}/tests/{name}-under-test "$@"\n'
        write(studio.place / f"build/release/orvelline-{name}", program).chmod(0o755)
    first, second = (studio.place / f"build/fleet/studio-{number}" for number in (1, 2))
    bundle = second / "plugins/VST3/MarbrelHD.vst3"
    why = f"Unknown or modified plugin preserved: {bundle}"
    tool, install, upgrade, back, remove, cleanup = (code for _, code in blocks("docs/fleet.md"))
    play(studio, tool)
    for code, before, one, two, package in [
            (install, "", 1, (1, 0), "Marbrel-VST3"),
            (install, f"rm -r {bundle}", 0, (1, 0), "Marbrel-VST3"),
            (upgrade, "", 1, (1, 0), "Marbrel-VST3-next"),
            (back, "", 1, (1, 0), "Marbrel-VST3"),
            (remove, f"touch {bundle}/new", 1, (0, 1), "none"),
            (cleanup, "", 1, (1, 0), "none")]:
        studio.lsof()
        state = disk(first / "plugins"), disk(first / "support")
        assert play(studio, f"{code} --check --limit studio-1") == ({"studio-1": (one, 0)}, [])
        assert (disk(first / "plugins"), disk(first / "support")) == state
        studio.sh(before)
        studio.lsof({"*": IN_USE} if code == upgrade else {})
        assert play(studio, code) == ({"studio-1": (one, 0), "studio-2": two}, [
            (f"studio-2: {why}", ""), ("", why)] if two[1] else [])
        payload = studio.place / "examples" / package / "payload"
        assert disk(first / "plugins") == (disk(payload) or {"VST3": "directory"})
    # What a way back needs stays, and the copy of what is installed.
    assert [[len(list(root.glob(part))) for root in (first, second)] for part in (
        "support/Backups/*", "support/Backups/*/original/*/*", "orvelline-packages/*/payload")
    ] == [[1, 2], [2, 1], [0, 1]]


@pytest.mark.parametrize("options, answer", [
    ("package=p", "Give the absolute path of the package's archive, with -e package=/..."),
    ("package=/p", "/p is no archive with CONTENTS.sha256 and PRODUCT.txt at its top"),
    ("package=/p -e state=new", "There is no state new: it is present, absent or previous")])
def test_wrong_call(studio, options, answer):
    code = f"cd {ROOT}/examples/fleet; ansible-playbook -i rehearsal.yml install.yml -e {options}"
    assert play(studio, code) == ({"studio-1": (0, 1)}, [("", answer)])
