"""What orvelline-repair tells, refuses and brings back, besides the sweep of killed runs."""

import os
import shlex
import shutil
from fnmatch import fnmatchcase

import pytest
from harness import HD, LOADED, LOW, RECEIPT, disk, failed, files, rows

PLACE = ["--product", "Marbrel", "--format", "VST3"]
PACKAGES = {"1": files(1), "2": files(2), "h": files(1, HD), "l": files(1, LOW),
            "au": files(1, "Components/MarbrelHDAU.component")}
# For pieces of shell, with both programs by their names: the last run's paths, what makes of a
# finished run one that was killed before its receipt or after its first bundle, and what stands.
WORDS = f"""HD=r/plugins/{HD} LOW=r/plugins/{LOW} receipt=r/support/{RECEIPT} runs=r/support/Backups
paths() {{ t=$(echo $runs/Marbrel-*); t=${{t##* }}; old=$t/previous-receipt.sha256
original=$t/original/{HD} backup=$t/verified-backup/{HD}; }}
on() {{ installer --test-root r --package "$@"; paths; }}
look() {{ repair --test-root r {' '.join(PLACE)} "$@"; }}
put() {{ mkdir -p $t/$2/VST3; mv $1 $t/$2/VST3; }}
killed() {{ mv $old $receipt || rm $receipt; }}
half() {{ killed; put $LOW staged; mv $t/original/{LOW} $LOW || :; }}
from() {{ for p in 2 1 h l; do diff -r $1 $p/$2 >&2 && printf $p && return; done
if [ -e $1 ]; then printf '?'; else printf -; fi; }}
stands() {{ from $HD payload/{HD}; from $LOW payload/{LOW}; from $receipt CONTENTS.sha256; }}
paths
"""
WELL, DIFFERS = "Nothing needs to be done\n", "A bundle is absent or changed since: *\n"
BACK, BY_HAND = "Close all hosts and type: *\n", "Move the damaged receipt away by hand, *\n"
# What is done, the status and what is told, and what stands after each way back: the packages that
# the two bundles and the receipt are from.
STATES = [
    ("on 1; half; echo >$t/staged/.DS_Store", 1, f"*HD.vst3 in place: not proved\n*{BACK}", "---"),
    ("on 1; echo >$t/staged/.DS_Store", 0, f"*finished\n*as this run brought it\n{WELL}", "---"),
    ("on 1; on 2; killed; touch $receipt", 1, f"*receipt in place: as before*{BACK}", "111"),
    ("on l; on h; killed; touch $LOW", 1, f"*{LOW} in place: as before*{BACK}", "-1l"),
    ("on l; on h; killed; touch $receipt", 1, f"*{HD} in place: not proved*{BACK}", "-1l"),
    ("on l; on h; : >$receipt", 1, f"*receipt in place: damaged\n*{BY_HAND}", "-1l"),
    ("on 1; echo >$HD/b; rm -r $LOW", 0, f"*: changed since\n*: absent\n*{DIFFERS}", "---"),
    ("on 1; rm -r $runs $HD; echo >$LOW/b", 0, f"*: absent\n*: changed since\n{DIFFERS}", "-?1"),
    ("on 1; on 2; killed; touch $receipt.tmp; on 2 || :", 1, f"*, undone: *{BACK}", "111"),
    ("on 1; on au; on au; touch $receipt.tmp", 1, f"*finished\n*\n  left by*{BACK}", "111 ---"),
    ("mkdir r r/support; : >$receipt; : >$receipt.tmp", 1, "*damaged\n*\nMove that*\n", "--?"),
    ("on 1; on 2; find $runs -empty -delete", 0, f"*finished\n  an install: *{WELL}", "111"),
    ("on l; on 2; killed; find $runs -empty -delete", 1, f"*\n  an install: *{BACK}", "-1l"),
    ("on 1; half; put $HD staged; cp -r 2/payload/VST3 r/plugins", 0, f"*changed no*{WELL}", "22-"),
    ("on 1; on 1; half", 0, f"*run left all as it was\n*as before this*{WELL}", "111 ---"),
    ("on 1; on 2; look --back", 0, f"*as this run brought it*undone: *{WELL}", "---"),
    ("on 1; on 1 --remove; mv $t/removed* $receipt; rm -r $t/verif*", 1, f"*{BACK}", "--1"),
    ("on 1; on h --remove", 0, f"*finished\n  a removal: *{WELL}", "111"),
    ("on 1; on 2; killed; put $LOW failed", 1, f"*: absent\n*the new one: */failed/*{BACK}", "111"),
    ("on 1; on 2; half; on 2; half", 1, f"*{HD} in place: as before*{BACK}", "211 111"),
    ("on 1; on 2; killed; echo >$original/b", 1, f"*: not proved\n    the old one: *{BACK}", "111"),
    ("on 1; on 2; rm -r $t/original $HD", 0, f"*{DIFFERS}", "111 ---"),
    ("on 1; mv $HD x; look --back; mv x $HD", 0, f"*no transaction*\n{WELL}", "1--"),
    ("on 1; on 1 --remove; cp -r 2/payload/VST3 r/plugins", 0, "*removal: *changed since*", "111"),
    ("on 1; on 2; printf '#!/bin/sh\nkill $PPID; exit 1' >lsof", 0, f"*{WELL}", "111"),
    ('on 1; on 2; echo "#!/bin/sh\necho x >$original/b; exit 1" >lsof', 0, f"*{WELL}", "?--"),
]
REFUSALS = [
    ("mv $HD x; ln -s ../../../x $HD", f"Symlink path refused: {{}}/r/plugins/{HD}"),
    ("printf '#!/bin/sh\\nexit 0\\n' >lsof", LOADED),
    (f"mkdir -p $t/repaired/{HD}", f"New destination appeared; {{}}/r/*/repaired/{HD}"),
    ("echo >$t/repaired", "New destination appeared; {}/r/*/repaired"),
    ("rm -r $t/verified-backup $old", "Backup *; {}/r/support/* and the backup differ"),
    ("echo x >$backup/b", "Backup *; {}/r/support/* is whole, the backup is not"),
    ("rm -r $runs; echo >$receipt.tmp", "Stale transaction receipt preserved; contact support"),
    ("mv $t $runs/Marbrel-9000000000000000000", "Run lies in the future; check the clock: {}/r/*0"),
    ("chmod 555 r/support", "filesystem error"),
]


@pytest.fixture
def shop(studio):
    for name, content in PACKAGES.items():
        studio.package(name, content)
    return studio


def sh(shop, code):
    return shop.sh("".join(f'{name}() {{ {shlex.join(shop.command(name))} "$@"; }}\n'
                           for name in ("installer", "repair")) + WORDS + code)


@pytest.mark.parametrize("made, status, told, after", STATES)
def test_states(shop, made, status, told, after):
    made, ended = sh(shop, made), sh(shop, "look")
    assert (made.status, ended.status, ended.err) == (0, status, ""), (made, ended)
    assert fnmatchcase(ended.out, told), ended
    for state in after.split():
        ended = sh(shop, "look --back")
        assert sh(shop, "stands").out == state, ended


@pytest.mark.parametrize("change, message", REFUSALS)
def test_refusals(shop, change, message):
    made = sh(shop, f"umask 0; on 1; on 2; chmod -R a+rwX .; {change}")
    before = disk(shop.place / "r")
    program = shutil.copy(shop.command("repair")[-1], shop.place / "program")
    user = {"user": 65534} if os.geteuid() == 0 else {}
    ended = shop.run(*shop.emulator, program, "--test-root", "r", *PLACE, "--back", **user)
    assert (made.status, ended[:2], disk(shop.place / "r")) == (0, (3, ""), before), (made, ended)
    assert fnmatchcase(ended.err, f"{message}\n".format(shop.place)), ended


@pytest.mark.parametrize("message, options", rows({
    "Product and format required": ["--back", "--product Marbrel"],
    "Unknown product": ["--product marbrel --format VST3"],
    "Unexpected format": ["--product Marbrel --format AU"],
}))
def test_command_line(studio, message, options):
    assert studio.tool(*options.split(), program="repair") == failed(message)


def test_what_it_says_can_be_typed(shop):
    told = sh(shop, "on 1; on 2; half; mv r it\\'s; repair --test-root it\\'s || :")
    ended = sh(shop, told.out.rpartition("orvelline-")[2] + "mv it\\'s r; stands")
    assert ended.out.endswith("\n111"), (told, ended)
