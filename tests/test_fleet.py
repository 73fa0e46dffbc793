"""The fleet's module, called as Ansible calls it, and the plays by the commands of docs/fleet.md."""

import json
import re
import shutil
import sys

import pytest
from harness import LOADED, ROOT, blocks, disk, files, write

pytestmark = pytest.mark.once
SHELL = r"""for name in 1 2; do tar -czf $name.tar.gz -C $name .; done
lsof() { printf '#!/bin/sh\n%s\nexit 1\n' "${1-}" >lsof; }
on() { bin/orvelline-installer --test-root r --package $1; }
killed() { lsof 'echo >>n; [ $(wc -l <n) -lt 4 ] || kill -9 $PPID'; ! on 2; lsof; }
ran() { for day; do mkdir -p $runs/Marbrel-$(($(date +%s) - day * 86400))$unit/staged/VST3; done; }
key() { ssh-keygen -q -t ed25519 -N '' -f k; echo me $(cat k.pub) >signers; }
runs=r/support/Backups unit=000000000
"""
BACK = "; no run(s) gone back over"
OTHER = "{}/1.tar.gz is refused, it holds something else than files and directories of its own: "
KEY = "key; ssh-keygen -q -Y sign -n orvelline-package -f k 1.tar.gz; "


@pytest.mark.parametrize("code, wanted, answer, stands", [
    ("on 1; on 2", "present 2", False, "22 2"),
    ("on 1; on 2", "absent 1", True, " 3"),
    ("on 1; killed", "present 2", True, "22 3"),
    ("on 1; killed; lsof 'exit 0'", "present 2", LOADED, "21 2"),
    ("on 1; touch r/support/Marbrel-VST3.sha256.tmp", "present 2", True, "22 2"),
    ("on 1; echo >r/support/Marbrel-VST3.sha256", "present 2", "Malformed manifest", "11 1"),
    ("on 1", "previous 2", False, "11 1"),
    ("on 1", "previous 1", True, " 1"),
    ("on 1; on 2; rm -r r/plugins/VST3/*HD*; on 2", "previous 2", True, "11 3"),
    ("on 1; killed; on 2", "previous 2", True, "11 3"),
    ("on 1; killed; rm -r $runs/*; on 2", "previous 2",
     f"The runs that are left lead to a part of a version only{BACK}", "22 1"),
    ("on 1; rm -r $runs/*", "previous 1", f"No run is left to go back to{BACK}", "11 0"),
    ("on 1; lsof 'echo $$ >pid; exec sleep 99'", "present 2",
     "orvelline-installer did not end within 1 seconds, and was ended", "11 1"),
    ("ln -s . 1/l; tar -czf 1.tar.gz 1", "present 1", f"{OTHER}1/l", " 0"),
    ("mkfifo 1/f; tar -czf 1.tar.gz 1", "present 1", f"{OTHER}1/f", " 0"),
    ("tar -czPf 1.tar.gz 1/../2", "present 1", f"{OTHER}1/../2", " 0"),
    ("tar -czPf 1.tar.gz $PWD/1", "present 1", OTHER, " 0"),
    ("head -c -9 1.tar.gz >3.tar.gz", "present 3", "{}/3.tar.gz is no whole archive", " 0"),
    ("mkdir -p t/bin; echo >t/bin/orvelline-installer; cp bin/*repair t/bin; tar -czf 3.tar.gz t",
     "tool 3", "", " 0"),
    ("ran 1 2 3 91 92", "clean", True, " 3"),
    ("on 1; ran 1 2 91; ln -s $PWD/r/plugins $(ls -d $runs/* | head -n 1)/l", "clean", True, "11 3"),
    ("ran 1 2 3 4", "clean", False, " 4"),
    ("unit=000000; ran 91 92 93 94; mkdir $runs/Marbrel-1-2", "clean", True, " 4"),
    ("ran 1 2 3 91; touch r/support/Marbrel-VST3.sha256.tmp", "clean", "Nothing was removed", " 4"),
    ("", "checked 1 orvelline_package=p",
     "Give the absolute path of the package's archive, with -e orvelline_package=/...", " 0"),
    ("", "checked 1 orvelline_wait=2m", "orvelline_wait is no whole number: 2m", " 0"),
    ("", "checked 1 orvelline_state=new", "There is no state new: it is present, absent or", " 0"),
    (KEY, "checked 1 orvelline_signers=signers", False, " 0"),
    (f"{KEY}cp 2.tar.gz 1.tar.gz", "checked 1 orvelline_signers=signers",
     "{}/1.tar.gz has no valid signature of signers: ", " 0"),
    ("key", "checked 1 orvelline_signers=signers", "{}/1.tar.gz has no signature at", " 0")])
def test_module(studio, code, wanted, answer, stands):
    for name in "installer", "repair":
        (studio.place / "bin").mkdir(exist_ok=True)
        (studio.place / f"bin/orvelline-{name}").symlink_to(
            f"{studio.build}/tests/{name}-under-test")
    for name in "1", "2":
        studio.package(name, files(name))
    assert studio.sh(SHELL + code)[0] == 0
    state, package, *more = f"{wanted} ".split(" ")
    for check in True, False:
        before = disk(studio.place / "r")
        archive = f"{studio.place}/{package}.tar.gz"
        asked = {"state": state, "package": archive, "timeout": 1, "_ansible_check_mode": check,
                 "program": f"{studio.place}/bin/orvelline-installer",
                 "test_root": f"{studio.place}/r", "needed": "orvelline_package",
                 "variables": dict([("orvelline_package", archive)] + [
                     word.split("=") for word in more if word])}
        asked = write(studio.place / "asked", json.dumps({"ANSIBLE_MODULE_ARGS": asked}))
        told = json.loads(studio.run(sys.executable, ROOT / "fleet/library/orvelline.py",
                                     stdin=asked.open())[1])
        if told.get("failed"):
            assert told["msg"].startswith(str(answer).format(studio.place)), told
        else:
            assert told["changed"] is answer, told
        packages = {"orvelline-packages": "directory"}
        assert not check or disk(studio.place / "r") | packages == before | packages
    assert studio.sh("""cat r/plugins/*/*/b | tr -dc 12; echo " $(ls r/support/Backups | wc -l)"
    ! grep -q . /proc/$(cat pid)/cmdline""")[1] == stands + "\n"


@pytest.mark.long
def test_plays(studio):
    for part in "examples", "fleet", "tools":
        shutil.copytree(ROOT / part, studio.place / part)
    for name in "installer", "repair":
        program = f"cd {studio.place}; '{studio.build}/tests/{name}-under-test' \"$@\"\n"
        write(studio.place / f"build/release/orvelline-{name}", f"#!/bin/sh\n{program}").chmod(0o755)
    plugins = studio.place / "build/fleet/studio-2/plugins/VST3"
    told = []
    for _, code in blocks("docs/fleet.md"):
        studio.lsof({"*": "case $2 in */studio-2/*) ! mkdir tried 2>/dev/null || exit 0; esac"})
        if "absent" in code:
            write(plugins / "MarbrelHD.vst3/x", "x")
        status, out, err = studio.sh(code, environment={"ANSIBLE_FORKS": "1"})
        assert "[WARNING]" not in out + err
        report = re.findall(r"^    \"msg\": \[\n([^]]*)\n    \]\n}\n\nPLAY RECAP .*\n(.*)changed=(\d)"
                            r".*\n(?:.*changed=(\d))?", out, re.M)
        told += [(status, *changed, re.findall('"(.*)"', lines)) for lines, _, *changed in report]
    digests = ["809d24f1f0e1", "04b906a5900a"]
    assert told == []
