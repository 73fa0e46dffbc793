"""What orvelline-repair prints, undoes and refuses; test_sweep.py has the killed runs."""

import json
import os
import re
import shlex
import shutil

import pytest
from harness import HD, LOW, RECEIPT, differences, disk, files, table

PACKAGES = {"1": files(1), "2": files(2), "hd": files(1, HD), "low": files(1, LOW),
            "au": files(1, "Components/MarbrelHDAU.component")}
# For the shell code: the paths; functions that install, and set the name and paths of the newest
# run; functions that turn a finished run into a killed one; and one that prints what is installed.
WORDS = f"""HD=r/plugins/{HD} LOW=r/plugins/{LOW} receipt=r/support/{RECEIPT} runs=r/support/Backups
paths() {{ t=$(echo $runs/Marbrel-*); t=${{t##* }}; run=${{t##*/}} old=$t/previous-receipt.sha256
original=$t/original/{HD} backup=$t/verified-backup/{HD}; }}
on() {{ installer --test-root r --package "$@"; paths; }}
put() {{ mkdir -p $t/$2/VST3; mv $1 $t/$2/VST3; }}
unfinished() {{ mv $receipt $receipt.tmp; }}
killed() {{ mv $old $receipt || rm $receipt; }}
half() {{ killed; put $LOW staged; mv $t/original/{LOW} $LOW; }}
from() {{ for p in 2 1 hd low; do diff -r $1 $p/$2 >&2 && printf $p && return; done
if [ -e $1 ]; then printf '?'; else printf -; fi; }}
installed() {{ echo HD=$(from $HD payload/{HD}) LOW=$(from $LOW payload/{LOW}) \\
receipt=$(from $receipt CONTENTS.sha256); }}
paths
"""
# The last line without --undo. RUN is $run, OLDER another run.
CLOSE = "Close all music programs and type: orvelline-repair --test-root '{}/r' --undo "
LAST = {
    "well": "Nothing needs to be done", "close": f"{CLOSE}RUN", "close older": f"{CLOSE}OLDER",
    "file": f"Move this file away by hand: {{}}/r/support/{RECEIPT}.tmp",
    "receipt": "Move the damaged receipt away by hand, and install the same version again: "
               f"{{}}/r/support/{RECEIPT}",
    "changed": "LOW was changed: move it away by hand, and install its package again",
    "missing": "HD is missing: install its package again",
    "unlisted": "LOW is on no receipt: install its package again, or remove it with that package "
                "and --remove"}


@pytest.fixture
def shop(studio):
    for name, content in PACKAGES.items():
        studio.package(name, content)
    return studio


def sh(shop, code):
    """Runs shell code; gives its output, and the name of $run."""
    programs = "".join(f'{name}() {{ {shlex.join(shop.command(name))} "$@"; }}\n'
                       for name in ("installer", "repair"))
    ended = shop.sh(f"{programs}{WORDS}{code}\necho $run")
    assert ended.status == 0, ended
    return ended.out, ended.out.split()[-1]


def said(ended, run):
    """The status, the lines on the first product and format, and the last line."""
    block = re.search("^Marbrel VST3: (.*(?:\n  [^ ].*)*)", ended.out, re.M)[1]
    block = re.sub("\n  (last run|to undo it).*|(?<=unfinished) receipt: .*", "", block)
    block = block.replace(": ", " ").replace("\n  ", ", ")
    text = f"{ended.status} {block}: {ended.out.splitlines()[-1]}".replace(run, "RUN")
    return re.sub("Marbrel-[0-9]+", "OLDER", text).replace(HD, "HD").replace(LOW, "LOW")


# What happens; by which piece of shell; the status and the words of a look, "well" if both bundles
# are; and what undoing $run says, its status, and what is installed then.
@pytest.mark.parametrize("code, look, undone", table("""
a new bundle goes with its run | on low; on 1 | well | Undid 0 HD=- LOW=1 receipt=low
each format has its runs | on 1; on 2; r=$run; on au; on au; run=$r | well |
    Undid 0 HD=1 LOW=1 receipt=1
another name is no run, and no date counts | on 1; on 2; cp -r $t $t-2; touch -d @1 $t;
    mv $t-2 $runs/Marbrel-2x; cp -r $t $runs/Marbrel-; cp -r $t $runs/Marbrel-0${run#*-} | well |
    Undid 0 HD=1 LOW=1 receipt=1
a number decides which run is newer | on 1; on 2; on 1; set -- $runs/*; rm -r $1;
    mv $2 $runs/Marbrel-9; mv $3 $runs/Marbrel-10; run=Marbrel-10 | well |
    Undid 0 HD=2 LOW=2 receipt=2
an upgrade was killed after its first bundle, and a backup is damaged |
    on 1; on 2; half; echo >$backup/b; ln -s b $HD/c |
    1 interrupted, HD changed, LOW installed: close | Undid 0 HD=1 LOW=1 receipt=1
an upgrade was killed while a bundle was away that no receipt lists |
    on 1; on hd; on 1; killed; put $LOW staged | 1 interrupted, HD installed: close |
    Undid 0 HD=1 LOW=1 receipt=hd
an upgrade was killed between the renames of the receipts | on hd; on 2; unfinished |
    1 interrupted, HD on no receipt, LOW on no receipt, receipt absent, unfinished: close |
    Undid 0 HD=1 LOW=- receipt=hd
a receipt equals the previous one, so the unfinished one is the run's own |
    on hd; on 1; unfinished; cp $old $receipt |
    1 interrupted, HD installed, LOW on no receipt, unfinished: close |
    Undid 0 HD=1 LOW=- receipt=hd
a bundle that somebody else has put there stays |
    on hd; on hd; cp -r 2/payload/VST3/*Low* r/plugins/VST3 |
    0 not well, HD installed, LOW on no receipt: unlisted | Undid 0 HD=1 LOW=2 receipt=hd
a removal that has finished was not interrupted | on 1; on 1 --remove; >$receipt.tmp |
    1 not well, receipt absent, unfinished: close older | Undid 0 HD=1 LOW=1 receipt=1
a removal that found no bundle is undone | on 1; rm -r $HD $LOW; on 1 --remove |
    0 well, receipt absent: well | Undid 1 HD=- LOW=- receipt=1
a killed removal installed nothing, even if an unfinished receipt lists something |
    on hd; on hd --remove; mv $t/removed* $receipt; cp 1/C* $receipt.tmp; mkdir $LOW |
    1 interrupted, HD missing, LOW on no receipt, unfinished: close | Undid 0 HD=1 LOW=? receipt=hd
a killed removal had found no receipt |
    on 1; rm $receipt; on 1 --remove; mv $t/original/*/*L* $LOW
    | 1 not well, LOW on no receipt, receipt absent: unlisted |
    Undid 1 HD=1 LOW=1 receipt=-
an older interrupted run keeps the unfinished receipt | on 1; on 2; unfinished; on 2 --remove |
    1 not well, receipt absent, unfinished: close older | Undid 1 HD=2 LOW=2 receipt=-
an empty run takes an unfinished receipt | on au --remove; mkdir $runs/Marbrel-1; >$receipt.tmp |
    1 not well, receipt absent, unfinished: close | Undid 0 HD=- LOW=- receipt=-
a run takes only one unfinished receipt |
    on 1; >$receipt.tmp; repair --test-root r --undo $run; >$receipt.tmp |
    1 not well, HD installed, LOW installed, unfinished: file | nothing 1 HD=1 LOW=1 receipt=1
a directory is a damaged receipt | on 1; on 2; rm $receipt; mkdir $receipt |
    1 not well, HD on no receipt, LOW on no receipt, receipt damaged: receipt |
    Undid 0 HD=1 LOW=1 receipt=1
a changed bundle comes before a missing one | on 1; rm -r $HD $LOW/* |
    1 not well, HD missing, LOW changed: changed | nothing 1 HD=- LOW=? receipt=1
a missing bundle comes before one on no receipt | on hd; rm -r $HD; mkdir $LOW |
    1 not well, HD missing, LOW on no receipt: missing | nothing 1 HD=- LOW=? receipt=hd
a plain file in a bundle's place moves away | on 1; on 2; rm -r $LOW; echo >$LOW |
    1 not well, HD installed, LOW changed: changed | Undid 0 HD=1 LOW=1 receipt=1
"""))
def test_states(shop, code, look, undone):
    run = sh(shop, code)[1]
    look = "0 well, HD installed, LOW installed: well" if look == "well" else look
    words, _, last = look.rpartition(": ")
    ended = shop.tool("--test-root", "r", program="repair")
    assert said(ended, run) == f"{words}: {LAST[last].format(shop.place)}"
    ended = shop.tool("--test-root", "r", "--undo", run, program="repair")
    word, nothing = undone.split()[0], f"{run} has nothing to undo\n"
    assert ended.out.startswith(nothing if word == "nothing" else f"{word} {run}\n")
    left = sh(shop, "installed")[0].splitlines()[0]
    assert f"{word} {ended.status} {left}" == undone
    before = disk(shop.place / "r")
    ended = shop.tool("--test-root", "r", "--undo", run, program="repair")
    assert ended.out.startswith(nothing)
    assert differences(before, disk(shop.place / "r")) == []


# What is in the way; by which piece of shell after an upgrade; the options; and the message.
@pytest.mark.parametrize("code, options, message", table(f"""
a link | mv $HD x; ln -s ../../../x $HD | --undo RUN | Symlink path refused: {{}}/r/plugins/{HD}
a program has a bundle open | printf '#!/bin/sh\\nexit 0\\n' >lsof | --undo RUN | {{LOADED}}
a bundle where another has to go | mkdir -p $t/repaired/{HD} | --undo RUN |
    New destination appeared; {{}}/r/support/Backups/RUN/repaired/{HD}
a file where a directory has to go | echo >$t/repaired | --undo RUN |
    New destination appeared; {{}}/r/support/Backups/RUN/repaired
a damaged original | echo >$original/b | --undo RUN |
    Backup verification failed; {{}}/r/support/Backups/RUN/original/{HD}
a locked receipt | chmod 444 $receipt | --undo RUN | filesystem error
a directory that nothing may leave | chmod 555 $t/original/VST3 | --undo RUN | filesystem error
a directory that nothing may enter | mkdir $t/repaired; chmod 555 $t/repaired | --undo RUN |
    filesystem error
a locked unfinished receipt | >$receipt.tmp; chmod 444 $receipt.tmp | --undo RUN | filesystem error
a file that cannot be read | chmod 0 $HD/b | --undo RUN |
    Cannot read {{0}}/r/plugins/{HD}/b; {{0}}/r/plugins/{HD}
a receipt that cannot be read | chmod 0 $old | --json |
    Cannot read {{}}/r/support/Backups/RUN/previous-receipt.sha256
an unknown run | : | --undo Marbrel-1 | No such run: Marbrel-1
a run whose format nothing shows | on 2 --remove; rm -r $t/[ov]*; echo >$t/removed-receipt.sha256 |
    --undo RUN | No such run: RUN
a newer run | r=$run; on 1; echo $run >newer; run=$r | --undo RUN | Undo this run first: NEWER
an install after a removal | on 2 --remove; r=$run; on 2; run=$r | --undo RUN |
    A later run replaced what it left: RUN
two options | : | --undo RUN --json | Give one of --undo and --json
"""))
def test_refusals(shop, code, options, message):
    run = sh(shop, f"umask 0; on 1; on 2; chmod -R a+rwX .; {code}")[1]
    before = disk(shop.place / "r") if os.geteuid() == 0 else None
    program = shutil.copy(shop.command("repair")[-1], shop.place / "program")
    user = {"user": 65534} if os.geteuid() == 0 else {}
    ended = shop.run(*shop.emulator, program, "--test-root", "r",
                     *options.replace("RUN", run).split(), **user)
    newer = shop.run("cat", "newer").out.strip()
    assert ended == shop.ends(message.replace("RUN", run).replace("NEWER", newer))
    assert not before or differences(before, disk(shop.place / "r")) == []


def test_what_comes_back_is_read_back(shop):
    run = sh(shop, "on 1; on 2")[1]
    shop.lsof({f"*{LOW}/*:1": f"echo >r/support/Backups/{run}/original/{HD}/b"})
    ended = shop.tool("--test-root", "r", "--undo", run, program="repair")
    assert ended == shop.ends(f"Installed readback mismatch; {shop.plugins}/{HD}")


def test_what_cannot_be_written_is_a_failure(shop):
    with open("/dev/full", "w") as full:
        ended = shop.tool("--json", program="repair", stdout=full)
    assert (ended.status, ended.err) == (3, "Cannot write the output\n")


def test_the_words_and_the_facts(shop):
    out, run = sh(shop, "on 1; on 2; repair --test-root r; repair --test-root r --json; "
                  "sha256sum [12]/CONTENTS.sha256")
    assert f"""Marbrel VST3: well
  {HD}: installed
  {LOW}: installed
  last run: {shop.support}/Backups/{run}
    original/{HD}
    original/{LOW}
    verified-backup/{HD}
    verified-backup/{LOW}
    previous-receipt.sha256
  to undo it, type: orvelline-repair --test-root '{shop.place}/r' --undo {run}
Nothing needs to be done
""" in out
    before, after = [line[:64] for line in out.splitlines()[-3:-1]]
    facts = json.loads(out[out.index("{"):out.rindex("}") + 1])
    first = facts["formats"][0]
    older = first["runs"].pop()
    assert (first, older["holds"], f"{facts['version']}\n") == (
        {"product": "Marbrel", "format": "VST3", "receipt": "whole", "digest": after, "tmp": False,
         "bundles": {HD: "installed", LOW: "installed"}, "interrupted": "", "undo": run,
         "before": before, "runs": [{"name": run, "holds": True}]}, False,
        shop.tool("--version", program="repair").out)
    over = sh(shop, "on 2 --remove; on 2; repair --test-root r; repair --test-root r --json")[0]
    assert ("to undo it" in over, '"undo": "", "before": ""' in over) == (False, True)


def test_the_command_that_it_says_can_be_typed(shop):
    out = sh(shop, "on 1; on 2; half; mv r it\\'s; repair --test-root it\\'s || :")[0]
    command = out.splitlines()[-2].rpartition(": orvelline-")[2]
    assert "HD=1 LOW=1 receipt=1\n" in sh(shop, f"{command}; mv it\\'s r; installed")[0]
