"""What orvelline-repair tells, refuses and brings back, besides the sweep of killed runs."""

import os
import shlex
import shutil
from fnmatch import fnmatchcase

import pytest
from harness import HD, LOADED, LOW, RECEIPT, disk, failed, files, write

PLACE = ["--product", "Marbrel", "--format", "VST3"]
PACKAGES = {"1": files(1), "2": files(2), "h": files(1, HD), "l": files(1, LOW),
            "au": files(1, "Components/MarbrelHDAU.component")}
# The last run's paths, and what makes of a finished run one that was killed before its receipt, or
# after its first bundle.
WORDS = f"""HD=r/plugins/{HD} LOW=r/plugins/{LOW} receipt=r/support/{RECEIPT} runs=r/support/Backups
paths() {{ t=$(echo $runs/Marbrel-*); t=${{t##* }}; old=$t/previous-receipt.sha256
original=$t/original/{HD} backup=$t/verified-backup/{HD}; }}
on() {{ ./installer --test-root r --package "$@"; paths; }}
back() {{ ./repair --test-root r {' '.join(PLACE)} --back; }}
killed() {{ mv $old $receipt || rm $receipt; }}
half() {{ killed; mv $LOW $t/staged/VST3; mv $t/original/{LOW} $LOW || :; }}
tidy() {{ find $runs -type d -empty -delete; }}
paths
"""
WELL, DIFFERS = "Nothing needs to be done\n", "A bundle is absent or changed since: *\n"
BACK, BY_HAND = "Close all hosts and type: *\n", "Move the damaged receipt away by hand, *\n"
# What is done, the status and what is told, and what stands after each way back: the packages that
# the two bundles and the receipt are from.
STATES = [
    ("on 1; half; echo >$t/staged/.DS_Store", 1, f"*HD.vst3 in place: not proved\n*{BACK}", "---"),
    ("on 1; echo >$t/staged/.DS_Store", 0, f"*: the last run has finished\n*{WELL}", "---"),
    ("on 1; on 2; killed; touch $receipt", 1, f"*receipt in place: as before*{BACK}", "111"),
    ("on l; on h; killed; touch $LOW", 1, f"*{LOW} in place: as before*{BACK}", "-1l"),
    ("on l; on h; killed; touch $receipt", 1, f"*{HD} in place: not proved*{BACK}", "-1l"),
    ("on 1; : >$receipt", 1, f"*receipt in place: damaged\n*{BY_HAND}", "---"),
    ("on 1; rm -r $runs; : >$receipt", 1, f"*receipt in place: damaged\n*{BY_HAND}", "11?"),
    ("on 1; echo >$HD/b; rm -r $LOW", 0, f"*: changed since\n*: absent\n*{DIFFERS}", "---"),
    ("on 1; rm -r $runs $HD; echo >$LOW/b", 0, f"*: absent\n*: changed since\n{DIFFERS}", "-?1"),
    ("on 1; on 2; killed; touch $receipt.tmp; on 2 || :", 1, f"*, undone: *{BACK}", "111"),
    ("on 1; on au; on au; touch $receipt.tmp", 1, f"*finished\n*\n  left by*{BACK}", "111 ---"),
    ("mkdir r r/support; touch $receipt.tmp", 1, "*\nMove that file away by hand\n", "---"),
    ("on 1; on 2; tidy", 0, f"*finished\n  an install: *{WELL}", "111"),
    ("on l; on 2; killed; tidy", 1, f"*\n  an install: *{BACK}", "-1l"),
    ("on 1; half; mv $HD $t/staged/VST3; cp -r 2/payload/VST3 r/plugins", 0,
     f"*passed over, changed nothing: *{WELL}", "22-"),
    ("on 1; on 1; half", 0, f"*run left all as it was\n*as before this*{WELL}", "111 ---"),
    ("on 1; on 2; half; mv $HD $t/staged/VST3; mv $original $HD", 0, f"*changed no*{WELL}", "---"),
    ("on 1; on 2; back", 0, f"*as this run brought it*undone: *{WELL}", "---"),
    ("on 1; mkdir -p $runs/Marbrel-$((${t##*-} + 1))/verified-backup/VST3", 0,
     f"*passed over, changed nothing: *{WELL}", "---"),
    ("on 1; on 1 --remove; mv $t/removed* $receipt; rm -r $t/verif*", 1, f"*{BACK}", "--1"),
    ("on 1; on h --remove", 0, f"*finished\n  a removal: *{WELL}", "111"),
    ("on 1; rm -r $HD; on 2; killed", 1, f"*{HD} in place: not proved\n*{BACK}", "-11"),
    ("on 1; killed; mkdir -p $t/repaired/VST3; mv $LOW $t/repaired/VST3", 1,
     f"*not proved\n  {LOW} in place: absent\n    the new one: */repaired/*", "---"),
    ("on 1; on 2; killed; mkdir -p $t/failed/VST3; mv $LOW $t/failed/VST3", 1,
     f"*{LOW} in place: absent\n*    the new one: */failed/*{BACK}", "111"),
    ("on 1; on 2; half; on 2; half", 1, f"*{HD} in place: as before*{BACK}", "211 111"),
    ("on 1; on 2; killed; echo >$original/b", 1, f"*{BACK}", "111"),
    ("on 1; on 2; rm -r $t/original $HD", 0, f"*{DIFFERS}", "111 ---"),
    ("on 1; mv $HD x; back; mv x $HD", 0, f"*no transaction*\n{WELL}", "1--"),
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


def repair(studio, *options, **more):
    return studio.tool("--test-root", "r", *PLACE, *options, program="repair", **more)


@pytest.fixture
def shop(studio):
    """A studio with packages, and with both programs by their names."""
    for name, content in PACKAGES.items():
        studio.package(name, content)
    for name in "installer", "repair":
        program = f'#!/bin/sh\nexec {shlex.join(studio.command(name))} "$@"\n'
        write(studio.place / name, program).chmod(0o755)
    return studio


def stands(studio):
    """The packages that the two bundles and the receipt in place are from."""
    places = [(studio.plugins / key, f"payload/{key}") for key in (HD, LOW)]
    places.append((studio.support / RECEIPT, "CONTENTS.sha256"))
    return "".join("-" if not place.exists() else next(
        (name for name in "21hl" if not studio.run(
            "diff", "-r", place, studio.place / name / part)[0]), "?") for place, part in places)


@pytest.mark.parametrize("made, status, told, after", STATES)
def test_states(shop, made, status, told, after):
    made = shop.sh(WORDS + made)
    ended = repair(shop)
    assert (made[0], ended[0], ended[2]) == (0, status, ""), (made, ended)
    assert fnmatchcase(ended[1], told), ended
    for state in after.split():
        ended = repair(shop, "--back")
        assert stands(shop) == state, ended


@pytest.mark.parametrize("change, message", REFUSALS)
def test_refusals(shop, change, message):
    made = shop.sh(f"{WORDS}umask 0; on 1; on 2; chmod -R a+rwX .; {change}")
    before = disk(shop.place / "r")
    program = shutil.copy(shop.command("repair")[-1], shop.place / "program")
    user = {"user": 65534} if os.geteuid() == 0 else {}
    options = ["--test-root", "r", *PLACE, "--back"]
    status, out, err = shop.run(*shop.emulator, program, *options, **user)
    assert (made[0], status, out) == (0, 3, ""), (made, err)
    assert fnmatchcase(err, f"{message}\n".format(shop.place)), err
    assert disk(shop.place / "r") == before


@pytest.mark.parametrize("options, message", [
    (["--back"], "Product and format required"),
    (["--product", "Marbrel"], "Product and format required"),
    (["--product", "marbrel", "--format", "VST3"], "Unknown product"),
    (["--product", "Marbrel", "--format", "AU"], "Unexpected format"),
])
def test_command_line(studio, options, message):
    assert studio.tool(*options, program="repair") == failed(message)


def test_what_it_says_can_be_typed(shop):
    out = shop.sh(f"{WORDS}on 1; on 2; half; mv r it\\'s; ./repair --test-root it\\'s || :")[1]
    for shell, state in ("sh", "111"), ("zsh", "---"):
        ended = shop.run(shell, "-c", f"./{out.rpartition(': orvelline-')[2]}")
        shop.sh("rm -rf r; cp -r it\\'s r")
        assert stands(shop) == state, ended


@pytest.mark.once
@pytest.mark.parametrize("run, end", [("on 2", "222"), ("on 1 --remove", "---")])
def test_it_is_killed_at_each_rename_with_a_damaged_original(shop, run, end):
    made = f"{WORDS}rm -rf r; on 1; {run}; echo >$original/b"
    shop.sh(made)
    calls = repair(shop, "--back", **shop.faulty(LIST_CALLS=1))[2].splitlines()
    for call in (number for number, line in enumerate(calls, 1) if line.startswith("rename")):
        shop.sh(made)
        repair(shop, "--back", **shop.faulty(KILL_CALL=call))
        told = repair(shop)
        assert told[0] == 1 or stands(shop) in ("111", end), (call, told)
        ended = told[0] and repair(shop, "--back")
        assert stands(shop) == ("111" if told[0] else end), (call, ended)
