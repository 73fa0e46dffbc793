"""The fleet's modules, called as Ansible calls them, and its playbooks, run as in docs/fleet.md."""

import json
import re
import sys

import pytest
from harness import HD, LOADED, ROOT, disk, files, table, write
from test_documents import blocks

pytestmark = pytest.mark.once
# What Ansible does before it runs a module. The user is root, which only a test root allows.
LOADER = f"""import os, runpy, sys, ansible.module_utils
ansible.module_utils.__path__.append("{ROOT}/fleet/module_utils")
os.getuid = int
runpy.run_path(f"{ROOT}/fleet/library/{{sys.argv.pop(1)}}.py", run_name="__main__")
"""
SHELL = r"""mkdir -p bin r/orvelline-packages
runs=r/support/Backups receipt=r/support/Marbrel-VST3.sha256 unit=000000000 area=original
for name in installer repair; do cp $build/tests/$name-under-test bin/orvelline-$name; done
for name in 1 2 3; do tar -czf $name.tar.gz -C $name .; done
on() { timeout 60 bin/orvelline-installer --test-root r --package $1; }
lsof() { printf '#!/bin/sh\n%s\nexit 1\n' "$1" >lsof; }
killed() { lsof 'echo >>n; [ $(wc -l <n) -lt 4 ] || kill -9 $PPID'; ! on 2; lsof ''; }
held() {
    mkfifo f g
    lsof 'mkdir h 2>/dev/null && echo >f && read x <g'
    { on 2 || :; echo >f; } >log 2>&1 &
    timeout 60 cat f
}
ran() { for day; do mkdir -p $runs/Marbrel-$(($(date +%s) - day * 86400))$unit/$area/$HD; done; }
"""
SEEN = """[ ! -p f ] || timeout 60 sh -c 'echo >g; cat f >>log'
cat r/plugins/*/*/b | tr -dc 12; echo " $(ls r/support/Backups | wc -l)"
"""


# What has happened; what the module is to do; what it says; the versions installed, and the runs.
@pytest.mark.parametrize("code, call, answer, left", table("""
the wanted version may be loaded | on 1; on 2; lsof 'exit 0' | present 2 | as wanted | 22 2
a killed run is undone first | on 1; killed | absent 1 | changed | 3
a loaded bundle is tried again | on 1; lsof 'exit 0' | present 2 | LOADED | 11 1
loaded and killed | on 1; killed; lsof 'exit 0' | present 2 | changed, then LOADED; .*inter | 21 2
a running installation is left alone | on 1; held | present 1 | An installation is running | 22 2
what hangs is ended | on 1; lsof 'trap "" TERM; sleep 99' | present 2 timeout=3 | .*not end | 11 1
a damaged receipt is explained | on 1; echo >$receipt | present 1 | Move the damaged rec | 11 1
no installed bundle is left out | on 1 | present 3 | VST3/MarbrelLowCPU.vst3 is installed | 11 1
a check asks for the rights | >r/plugins | present 1 | r/plugins may not be written to | 0
each run of a version is undone | on 1; on 2; on 2 | previous 2 | back to .*, then changed | 11 3
no first installation is undone | on 1 | previous 1 | .*nothing to undo; use .*absent | 11 1
another version is not undone | on 1 | previous 2 | left alone | 11 1
a package has no link | ln -s . 1/l; tar -czf 1.tar.gz 1 | present 1 | 1.tar.gz is refused | 0
a package stays in its place | tar -czPf 1.tar.gz 1/../2 | present 1 | 1.tar.gz is refused | 0
root needs a test root | on 1 | present 1 test_root= | Root is refused | 11 1
runs that can be undone stay | ran 91 92 93 94; area=staged; ran 1 95; unit=000000; ran 2 96;
    for x in $runs/*; do ln -s ../.. $x/x; done | clean 1 | 3 removed, 15 bytes | 5
an interrupted run stays | on 1; killed; ran 99 | clean 1 | Nothing was re.*--undo | 21 3
"""))
def test_module(studio, code, call, answer, left):
    for name, version, *keys in ("1", 1), ("2", 2), ("3", 1, HD):
        studio.package(name, files(version, *keys))
    made = studio.sh(SHELL + code, environment={"build": studio.build, "HD": HD})
    assert made.status == 0, made
    state, package, *more = call.split()
    given = {"program": f"{studio.place}/bin/orvelline-installer", "timeout": 60,
             "test_root": f"{studio.place}/r", **dict(word.split("=") for word in more)}
    module = "orvelline_cleanup"
    if state != "clean":
        module = "orvelline"
        given |= {"state": state, "package": f"{studio.place}/{package}.tar.gz"}
    before, told = disk(studio.place / "r"), []
    for check in True, False:
        ended = studio.run(sys.executable, "-c", LOADER, module, json.dumps(
            {"ANSIBLE_MODULE_ARGS": {**given, "_ansible_check_mode": check}}))
        told.append(json.loads(ended.out))
        assert not check or disk(studio.place / "r") == before
    seen = studio.sh(SEEN).out.strip()
    answers = answer.replace("LOADED", LOADED).split(", then ")
    for one, words in zip(told, [answers[0], answers[-1]]):
        said = one["msg"] if "failed" in one else [*one.get("lines", []), one["outcome"]][0]
        assert re.match(words, said.replace(f"{studio.place}/", "")), one
        assert one.get("retry", False) == words.startswith((LOADED, "An installation"))
    assert seen == left


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
    told = re.findall(r'^        "(?:. machines?: )?(.*?)[;"]', ended.out, re.M)
    assert (ended.status, "; ".join(told)) == (
        2, "2 changed; 2 changed; 1 changed; 2 well; "
        "Marbrel VST3: 04b906a5900a (Marbrel-VST3-next.tar.gz): studio-1; "
        "Marbrel VST3: 809d24f1f0e1: studio-2; 1 as wanted, 1 failed; "
        f"failed: {LOADED.partition(';')[0]}; 1 as wanted, 1 changed; "
        "2 changed; 2 changed; 2 changed; 2 removed, 1958 bytes: studio-1, studio-2; "
        "2 as wanted; 1 changed, 1 failed; "
        f"failed: Unknown or modified plugin preserved: {bundle}"), ended.out
