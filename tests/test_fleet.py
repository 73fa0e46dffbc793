"""Runs the commands of docs/fleet.md, one after the other, on two machines' test roots, and calls
the plays wrongly."""

import re
import shutil

import pytest
from harness import ROOT, disk, write
from test_documents import blocks

pytestmark = [pytest.mark.once, pytest.mark.long]
# studio-2 refuses its first try, and studio-1 each one until studio-2 has the upgrade.
IN_USE = """case $2 in */studio-2/*) mkdir tried 2>/dev/null && exit 0 ;;
*) cmp build/fleet/studio-2/support/*.sha256 examples/Marbrel-VST3-next/*.sha256 || exit 0; esac"""


def play(studio, code):
    """Runs a play on more machines than forks; gives each one's changes and failures, and why."""
    _, out, err = studio.sh(code, environment={"ANSIBLE_FORKS": "1", "ANSIBLE_PIPELINING": "1"})
    assert "[WARNING]" not in out + err
    recap = re.findall(r"^(studio-\d) .* changed=(\d+) .* failed=(\d+)", out, re.M)
    told = re.findall(r'^ +"(studio-\d: .*)"|FAILED! .*"msg": "(.*)"', out, re.M)
    return {name: (int(changed), int(bad)) for name, changed, bad in recap}, told


def test_fleet(studio):
    shutil.copytree(ROOT / "examples", studio.place / "examples")
    for name in "installer", "repair":
        program = f"#!/bin/sh\necho >&2; cd {studio.place}\n" \
                  f"'{studio.build}/tests/{name}-under-test' \"$@\"\n"
        write(studio.place / f"build/release/orvelline-{name}", program).chmod(0o755)
    first, second = (studio.place / f"build/fleet/studio-{number}" for number in (1, 2))
    bundle = second / "plugins/VST3/MarbrelHD.vst3"
    why = f"Unknown or modified plugin preserved: {bundle}"
    tool, install, upgrade, back, remove, cleanup = (code for _, code in blocks("docs/fleet.md"))
    play(studio, tool)
    for code, before, one, two, package in [
            (install, "", 1, (1, 0), "Marbrel-VST3"),
            # Another archive of the same package has left a file in the copy.
            (install, f"rm -r {bundle}; cd {second}/*packages/*/payload/VST3/*HD*; touch x",
             0, (1, 0), "Marbrel-VST3"),
            (upgrade, "", 1, (1, 0), "Marbrel-VST3-next"),
            (back, f"touch {first}/support/Marbrel-VST3.sha256.tmp", 1, (1, 0), "Marbrel-VST3"),
            (remove, f"touch {bundle}/new", 1, (0, 1), "none"),
            (cleanup, "", 1, (1, 0), "none")]:
        studio.lsof()
        state = disk(first / "plugins"), disk(first / "support")
        assert play(studio, f"{code} --check --limit studio-1") == ({"studio-1": (one, 0)}, [])
        assert (disk(first / "plugins"), disk(first / "support")) == state
        assert studio.sh(before)[0] == 0
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
    ("package=p install", "Give the absolute path of the package's archive, with -e package=/..."),
    *((f"package={file} install",
       f"{file} is no whole archive with CONTENTS.sha256 and PRODUCT.txt at its top")
      for file in ("/p", "{}/cut")),
    ("package=/p -e state=new install", "There is no state new: it is present, absent or previous"),
    ("tool=t tool", "Give the absolute path of the tool's package or archive, with -e tool=/..."),
    *((f"tool={file} tool", f"{file} is no Debian package, and no whole archive with the tool")
      for file in ("/t.deb", "{}/whole"))])
def test_wrong_call(studio, options, answer):
    code = f"""tar -czf whole -C '{ROOT}/examples/Marbrel-VST3' .; head -c -9 whole >cut
    cd '{ROOT}/examples/fleet'; ansible-playbook -i rehearsal.yml -e {options}.yml"""
    assert play(studio, code.format(studio.place)) == (
        {"studio-1": (0, 1)}, [("", answer.format(studio.place))])
