"""The fleet's module, called as Ansible calls it, and the plays as docs/fleet.md calls them."""

import json
import re
import sys

import pytest
from harness import LOADED, ROOT, disk, files, write
from test_documents import blocks

pytestmark = pytest.mark.once
SHELL = r"""mkdir -p bin r
runs=r/support/Backups unit=000000000
for name in installer repair; do ln -s $build/tests/$name-under-test bin/orvelline-$name; done
for name in 1 2; do tar -czf $name.tar.gz -C $name .; done
on() { bin/orvelline-installer --test-root r --package $1; }
lsof() { printf '#!/bin/sh\n%s\nexit 1\n' "$1" >lsof; }
killed() { lsof 'echo >>n; [ $(wc -l <n) -lt 4 ] || kill -9 $PPID'; ! on 2; lsof ''; }
ran() { for day; do mkdir -p $runs/Marbrel-$(($(date +%s) - day * 86400))$unit/staged/VST3; done; }
"""


@pytest.mark.parametrize("code, call, answer, left", [
    ("on 1; on 2", "present 2", "False", "22 2"),
    ("on 1; killed", "absent 1", "True", " 3"),
    ("on 1; killed; lsof 'exit 0'", "previous 2", LOADED, "21 2"),
    ("on 1; on 2; rm -r r/plugins/VST3/*HD*; on 2", "previous 2", "True", "11 3"),
    ("on 1; rm -r $runs/*", "previous 1", "No run is left to go back to", "11 0"),
    ("on 1; lsof 'trap \"\" TERM; sleep 99'", "present 2", "orvelline-installer did not", "11 1"),
    ("ln -s . 1/l; tar -czf 1.tar.gz 1", "present 1", "{}/1.tar.gz is refused", " 0"),
    ("tar -czPf 1.tar.gz 1/../2", "present 1", "{}/1.tar.gz is refused", " 0"),
    ("cp -rL bin 1; cp /bin/ls 1/bin/orvelline-repair; tar -czf 1.tar.gz 1", "tool 1", "{}", " 0"),
    ("on 1; ran 91 92 93; for x in $runs/*; do ln -s ../.. $x/x; done", "clean 1", "True", "11 3"),
    ("unit=000000; ran 1 2 3 4 91", "clean 1", "True", " 4"),
    ("ran 1 2 3 91; touch r/support/Marbrel-VST3.sha256.tmp", "clean 1", "Nothing was rem", " 4"),
    ("touch 1.tar.gz.sig keys", "checked 1", "{}/1.tar.gz has no valid signature", " 0")])
def test_module(studio, code, call, answer, left):
    for name in "1", "2":
        studio.package(name, files(name))
    assert studio.sh(SHELL + code, environment={"build": studio.build}).status == 0
    state, package = call.split()
    path = f"{studio.place}/{package}.tar.gz"
    given = {"state": state, "package": path, "timeout": 3 if "trap" in code else 60,
             "program": f"{studio.place}/bin/orvelline-installer", "test_root": f"{studio.place}/r",
             "variables": {"orvelline_package": path, "orvelline_signers": "keys"}}
    for check in True, False:
        before = disk(studio.place / "r")
        ended = studio.run(sys.executable, ROOT / "fleet/library/orvelline.py", json.dumps(
            {"ANSIBLE_MODULE_ARGS": {**given, "_ansible_check_mode": check}}))
        told = json.loads(ended.out)
        said = told["msg"] if "failed" in told else str(told["changed"])
        assert said.startswith(answer.format(studio.place)), told
        assert not check or disk(studio.place / "r") == before
    seen = studio.sh('cat r/plugins/*/*/b | tr -dc 12; echo " $(ls r/support/Backups | wc -l)"')
    assert seen.out == f"{left}\n"


@pytest.mark.long
def test_plays(studio):
    # studio-2 refuses its first try of the upgrade, and in the end has a plug-in of somebody else.
    studio.lsof({"*": "case $2 in */studio-2/*) mkdir tried 2>/dev/null && exit 0; esac"})
    bundle = f"{studio.place}/build/fleet/studio-2/plugins/VST3/MarbrelHD.vst3"
    for name in "installer", "repair":
        write(studio.place / f"build/release/orvelline-{name}", f"#!/bin/sh\ncd {studio.place}\n"
              f"'{studio.build}/tests/{name}-under-test' \"$@\"\n").chmod(0o755)
    codes = [f"cp -R '{ROOT}/examples' '{ROOT}/fleet' '{ROOT}/tools' .", *blocks("docs/fleet.md")]
    codes += [f"mkdir {bundle}; >{bundle}/x", codes[2]]
    ended = studio.sh("\n".join(codes), environment={"ANSIBLE_FORKS": "1"})
    told = re.findall(r'^        "(?!.*nothing)(.*)"', ended.out, re.M)
    done = "2 of 2 machines are done"
    assert (ended.status, told) == (2, [
        done, done, "1 of 1 machines are done", done,
        "studio-1: Marbrel VST3: 04b906a5900a (Marbrel-VST3-next.tar.gz)",
        "studio-2: Marbrel VST3: 809d24f1f0e1", *[done] * 5, "1 of 2 machines are done",
        f"studio-2: Unknown or modified plugin preserved: {bundle}"]), ended.out
