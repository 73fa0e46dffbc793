"""The fleet's module, called as Ansible calls it, and the plays as docs/fleet.md calls them."""

import json
import re
import shutil
import sys

import pytest
from harness import LOADED, ROOT, disk, files, write
from test_documents import blocks

pytestmark = pytest.mark.once
SHELL = r"""mkdir -p bin r/orvelline-packages; runs=r/support/Backups unit=000000000
for name in installer repair; do ln -s $build/tests/$name-under-test bin/orvelline-$name; done
for name in 1 2; do tar -czf $name.tar.gz -C $name .; done
on() { bin/orvelline-installer --test-root r --package $1; }
lsof() { printf '#!/bin/sh\n%s\nexit 1\n' "$1" >lsof; }
hang() { lsof 'echo $$ >pid; trap "" TERM; sleep 99'; }
killed() { lsof 'echo >>n; [ $(wc -l <n) -lt 4 ] || kill -9 $PPID'; ! on 2; lsof ''; }
ran() { for day; do mkdir -p $runs/Marbrel-$(($(date +%s) - day * 86400))$unit/staged/VST3; done; }
sign() { ssh-keygen -q -t ed25519 -N '' -f k; echo me $(cat k.pub) >keys
ssh-keygen -q -Y sign -n orvelline-package -f k 1.tar.gz; }
"""


@pytest.mark.parametrize("code, call, answer, left", [
    ("on 1; on 2", "present 2", False, "22 2"),
    ("on 1", "present 2", True, "22 2"),
    ("on 1; killed", "absent 1", True, " 3"),
    ("on 1; killed; lsof 'exit 0'", "previous 2", LOADED, "21 2"),
    ("on 1; touch r/support/Marbrel-VST3.sha256.tmp", "present 2", True, "22 2"),
    ("on 1", "previous 2", False, "11 1"),
    ("on 1; on 2; rm -r r/plugins/VST3/*HD*; on 2", "previous 2", True, "11 3"),
    ("on 1; killed; on 2", "previous 2", True, "11 3"),
    ("on 1; killed; rm -r $runs/*; on 2", "previous 2", "The runs that are left lead to", "22 1"),
    ("on 1; rm -r $runs/*", "previous 1", "No run is left to go back to", "11 0"),
    ("on 1; hang", "present 2", "orvelline-installer did not end within 3 seconds", "11 1"),
    ("ln -s . 1/l; tar -czf 1.tar.gz 1", "present 1", "{}/1.tar.gz is refused", " 0"),
    ("mkfifo 1/f; tar -czf 1.tar.gz 1", "present 1", "{}/1.tar.gz is refused", " 0"),
    ("tar -czPf 1.tar.gz 1/../2", "present 1", "{}/1.tar.gz is refused", " 0"),
    ("tar -czPf 1.tar.gz $PWD/1", "present 1", "{}/1.tar.gz is refused", " 0"),
    ("tar -czf 1.tar.gz 1", "present 1", "{}/1.tar.gz is no whole archive of a package", " 0"),
    ("cp -rL bin 1; cp /bin/ls 1/bin/orvelline-repair; tar -czf 1.tar.gz 1", "tool 1", "{}", " 0"),
    ("on 1; ran 91 92 93; for x in $runs/*; do ln -s ../../.. $x/x; done", "clean -", True, "11 3"),
    ("unit=000000; ran 1 2 3 4 91; mkdir $runs/Marbrel-1-2", "clean -", True, " 5"),
    ("ran 1 2 3 91; touch r/support/Marbrel-VST3.sha256.tmp", "clean -", "Nothing was rem", " 4"),
    ("", "checked 1 orvelline_wait=2m", "orvelline_wait is no whole number: 2m", " 0"),
    ("sign", "checked 1 orvelline_signers=keys", False, " 0"),
    ("sign; cp 2.tar.gz 1.tar.gz", "checked 1 orvelline_signers=keys", "{}/1.tar.gz has no", " 0")])
def test_module(studio, code, call, answer, left):
    for name in "1", "2":
        studio.package(name, files(name))
    prepared = studio.sh(SHELL + code, environment={"build": studio.build})
    assert prepared[0] == 0, prepared
    state, package, *more = call.split()
    path = f"{studio.place}/{package}.tar.gz"
    for check in True, False:
        before = disk(studio.place / "r")
        write(studio.place / "asked", json.dumps({"ANSIBLE_MODULE_ARGS": {
            "state": state, "package": path, "timeout": 3 if "hang" in code else 60,
            "test_root": f"{studio.place}/r",
            "program": f"{studio.place}/bin/orvelline-installer", "_ansible_check_mode": check,
            "variables": dict(word.split("=") for word in [f"orvelline_package={path}", *more])}}))
        told = studio.sh(f"'{sys.executable}' '{ROOT}/fleet/library/orvelline.py' <asked")[1]
        told = json.loads(told)
        said = told["msg"] if told.get("failed") else str(told["changed"])
        found = said.startswith(str(answer).format(studio.place)), told.get("retry", False)
        assert found == (True, answer == LOADED), (check, told)
        assert not check or disk(studio.place / "r") == before
    seen = studio.sh("""cat r/plugins/*/*/b | tr -dc 12; echo " $(ls r/support/Backups | wc -l)"
        ! xargs -I{} grep -q . /proc/{}/cmdline <pid""")
    assert seen[:2] == (0, f"{left}\n"), seen


@pytest.mark.long
def test_plays(studio):
    for part in "examples", "fleet", "tools":
        shutil.copytree(ROOT / part, studio.place / part)
    for name in "installer", "repair":
        write(studio.place / f"build/release/orvelline-{name}", f"#!/bin/sh\ncd {studio.place}\n"
              f"'{studio.build}/tests/{name}-under-test' \"$@\"\n").chmod(0o755)
    # studio-2 refuses its first try of the upgrade, and in the end has a plug-in of somebody else.
    studio.lsof({"*": "case $2 in */studio-2/*) mkdir tried 2>/dev/null && exit 0; esac"})
    codes = [code for _, code in blocks("docs/fleet.md")]
    bundle = f"{studio.place}/build/fleet/studio-2/plugins/VST3/MarbrelHD.vst3"
    status, out, err = studio.sh("\n".join([*codes, f"mkdir {bundle}; >{bundle}/x", codes[1]]),
                                 environment={"ANSIBLE_FORKS": "1"})
    told = re.findall(r'(?<=^        ").*(?=")|(?<=changed=)\d', out, re.M)
    rest = [line for line in told if "nothing" not in line and line != "2 of 2 machines are done"]
    assert (status, rest, err) == (2, [
        "1", "1", "1", "1", "1 of 1 machines are done", "1",
        "studio-1: Marbrel VST3: 04b906a5900a (Marbrel-VST3-next.tar.gz)",
        "studio-2: Marbrel VST3: 809d24f1f0e1", "0", "0", "0", "1", "1", "1", "1", "1", "1", "1",
        "0", "0", "1 of 2 machines are done",
        f"studio-2: Unknown or modified plugin preserved: {bundle}", "1", "0"], ""), out
    assert re.search(r"preserved: .*\n    \]\n}\n\nPLAY RECAP", out), out
