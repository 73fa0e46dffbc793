"""What orvelline-repair says, undoes and refuses, besides the sweep of killed runs."""

import json
import os
import re
import shlex
import shutil

import pytest
from harness import HD, LOADED, LOW, RECEIPT, disk, failed, files

PACKAGES = {"1": files(1), "2": files(2), "hd": files(1, HD), "low": files(1, LOW),
            "au": files(1, "Components/MarbrelHDAU.component")}
# For pieces of shell: both programs, the newest run's paths, what makes of a finished run one that
# was killed before its receipt or after its first bundle, and what is installed.
WORDS = f"""HD=r/plugins/{HD} LOW=r/plugins/{LOW} receipt=r/support/{RECEIPT} runs=r/support/Backups
paths() {{ t=$(echo $runs/Marbrel-*); t=${{t##* }}; run=${{t##*/}} old=$t/previous-receipt.sha256
original=$t/original/{HD} backup=$t/verified-backup/{HD}; }}
on() {{ installer --test-root r --package "$@"; paths; }}
look() {{ repair --test-root r "$@"; }}
put() {{ mkdir -p $t/$2/VST3; mv $1 $t/$2/VST3; }}
unfinished() {{ mv $receipt $receipt.tmp; }}
killed() {{ mv $old $receipt || rm $receipt; }}
half() {{ killed; put $LOW staged; mv $t/original/{LOW} $LOW || :; }}
from() {{ for p in 2 1 hd low; do diff -r $1 $p/$2 >&2 && printf $p && return; done
if [ -e $1 ]; then printf '?'; else printf -; fi; }}
installed() {{ echo hd=$(from $HD payload/{HD}) low=$(from $LOW payload/{LOW}) \\
receipt=$(from $receipt CONTENTS.sha256); }}
paths
"""
WELL = "Nothing needs to be done"
UNDO = "Close all music programs and type: orvelline-repair --test-root '{}/r' --undo RUN"
CHANGED = "was changed: move it away by hand, and install its package again"
MISSING = "is missing: install its package again"
UNLISTED = ("is on no receipt: install its package again, or remove it with that package and "
            "--remove")
DAMAGED = ("Move the damaged receipt away by hand, and install the same version again: "
           f"{{}}/r/support/{RECEIPT}")
BY_HAND = f"Move this file away by hand: {{}}/r/support/{RECEIPT}.tmp"
FINE = f"0 well, hd installed, low installed: {WELL}"
# What the row shows; what is done; the status of a look and what it says, with $run as RUN; what
# undoing RUN says, its status, and what is installed then.
STATES = [
    ("a first install cannot be undone", "on 1", FINE, "nothing 0 hd=1 low=1 receipt=1"),
    ("an upgrade is undone", "on 1; on 2", FINE, "Undid 0 hd=1 low=1 receipt=1"),
    ("a bundle that came with the run goes with it", "on low; on 1", FINE,
     "Undid 0 hd=- low=1 receipt=low"),
    ("the other format has runs of its own", "on 1; on 2; r=$run; on au; on au; run=$r", FINE,
     "Undid 0 hd=1 low=1 receipt=1"),
    ("what only looks like a run counts for nothing, and no date counts",
     "on 1; on 2; cp -r $t $t-2; mv $t-2 $runs/Marbrel-2x; touch $runs/Marbrel-9; touch -d @1 $t",
     FINE, "Undid 0 hd=1 low=1 receipt=1"),
    ("a run's number decides which is newer", "on 1; on 2; on 1; set -- $runs/*; rm -r $1; "
     "mv $2 $runs/Marbrel-9; mv $3 $runs/Marbrel-10; run=Marbrel-10", FINE,
     "Undid 0 hd=2 low=2 receipt=2"),
    ("an upgrade was killed after its first bundle", "on 1; on 2; half",
     f"1 interrupted, hd changed, low installed: {UNDO}", "Undid 0 hd=1 low=1 receipt=1"),
    ("an upgrade was killed while a bundle was away that no receipt lists",
     "on 1; on hd; on 1; killed; put $LOW staged", f"1 interrupted, hd installed: {UNDO}",
     "Undid 0 hd=1 low=1 receipt=hd"),
    ("an upgrade was killed between the renames of the receipts", "on hd; on 2; unfinished",
     f"1 interrupted, hd on no receipt, low on no receipt, receipt absent, unfinished: {UNDO}",
     "Undid 0 hd=1 low=- receipt=hd"),
    ("a receipt that equals the previous one is not the run's own, the unfinished one is",
     "on hd; on 1; unfinished; cp $old $receipt",
     f"1 interrupted, hd installed, low on no receipt, unfinished: {UNDO}",
     "Undid 0 hd=1 low=- receipt=hd"),
    ("a bundle that somebody else has put there stays",
     "on hd; on hd; cp -r 2/payload/VST3/*Low* r/plugins/VST3",
     f"0 not well, hd installed, low on no receipt: {LOW} {UNLISTED}",
     "Undid 0 hd=1 low=2 receipt=hd"),
    ("a removal is undone", "on 1; on 1 --remove", f"0 well, receipt absent: {WELL}",
     "Undid 0 hd=1 low=1 receipt=1"),
    ("a killed removal installed nothing, whatever an unfinished receipt lists",
     "on hd; on hd --remove; mv $t/removed* $receipt; cp 1/C* $receipt.tmp; mkdir $LOW",
     f"1 interrupted, hd missing, low on no receipt, unfinished: {UNDO}",
     "Undid 0 hd=1 low=? receipt=hd"),
    ("without a receipt, what a killed removal has left is on no receipt",
     "on 1; rm $receipt; on 1 --remove; mv $t/original/VST3/*Low* $LOW",
     f"1 not well, low on no receipt, receipt absent: {LOW} {UNLISTED}",
     "Undid 1 hd=1 low=1 receipt=-"),
    ("an older run that was interrupted keeps the unfinished receipt",
     "on 1; on 2; unfinished; on 2 --remove",
     f"1 not well, receipt absent, unfinished: {UNDO.replace('RUN', 'OLDER')}",
     "Undid 1 hd=2 low=2 receipt=-"),
    ("a killed first install ends with the same install", "on 1; unfinished",
     f"1 not well, hd on no receipt, low on no receipt, receipt absent, unfinished: {UNDO}",
     "Undid 1 hd=1 low=1 receipt=-"),
    ("a run takes only one unfinished receipt",
     "on 1; touch $receipt.tmp; look --undo $run; touch $receipt.tmp",
     f"1 not well, hd installed, low installed, unfinished: {BY_HAND}",
     "nothing 1 hd=1 low=1 receipt=1"),
    ("a directory is a damaged receipt", "on 1; on 2; rm $receipt; mkdir $receipt",
     f"1 not well, hd on no receipt, low on no receipt, receipt damaged: {DAMAGED}",
     "Undid 0 hd=1 low=1 receipt=1"),
    ("a changed bundle comes before a missing one", "on 1; rm -r $HD; ln -s b $LOW/c",
     f"1 not well, hd missing, low changed: {LOW} {CHANGED}", "nothing 1 hd=- low=? receipt=1"),
    ("a bundle without a file is changed", "on 1; rm -r $HD/*",
     f"1 not well, hd changed, low installed: {HD} {CHANGED}", "nothing 1 hd=? low=1 receipt=1"),
    ("a missing bundle comes before one on no receipt", "on hd; rm -r $HD; mkdir $LOW",
     f"1 not well, hd missing, low on no receipt: {HD} {MISSING}",
     "nothing 1 hd=- low=? receipt=hd"),
    ("a plain file in a bundle's place moves away", "on 1; on 2; rm -r $LOW; echo >$LOW",
     f"1 not well, hd installed, low changed: {LOW} {CHANGED}", "Undid 0 hd=1 low=1 receipt=1"),
]
# What the row shows; what is done after two installs; the run; the message.
REFUSALS = [
    ("a link in the way", "mv $HD x; ln -s ../../../x $HD", "$run",
     f"Symlink path refused: {{}}/r/plugins/{HD}"),
    ("a loaded bundle", "printf '#!/bin/sh\\nexit 0\\n' >lsof", "$run", LOADED),
    ("something where a bundle has to go", f"mkdir -p $t/repaired/{HD}", "$run",
     f"New destination appeared; {{}}/r/support/Backups/RUN/repaired/{HD}"),
    ("a file where a directory has to go", "echo >$t/repaired", "$run",
     "New destination appeared; {}/r/support/Backups/RUN/repaired"),
    ("a damaged original", "echo >$original/b", "$run",
     f"Backup verification failed; {{}}/r/support/Backups/RUN/original/{HD}"),
    ("a locked receipt", "chmod 444 $receipt", "$run", "filesystem error"),
    ("a directory that may not be written to", "chmod 555 r/support", "$run", "filesystem error"),
    ("a file that cannot be read", "chmod 0 $HD/b", "$run",
     f"Cannot read {{0}}/r/plugins/{HD}/b; {{0}}/r/plugins/{HD}"),
    ("a receipt that cannot be read", "chmod 0 $old", "$run",
     "Cannot read {}/r/support/Backups/RUN/previous-receipt.sha256"),
    ("an unknown run", "", "Marbrel-1", "No such run: Marbrel-1"),
    ("a run that is not the newest", "on 1; on 1; run=$(ls $runs | sed -n 2p)", "$run",
     "Undo this run first: LAST"),
    ("a removal that an install has followed", "on 2 --remove; r=$run; on 2; run=$r", "$run",
     "A later run replaced what it left: RUN"),
    ("two things at once", "", "$run --json", "Give one of --undo and --json"),
]


@pytest.fixture
def shop(studio):
    for name, content in PACKAGES.items():
        studio.package(name, content)
    return studio


def sh(shop, code):
    """Runs a piece of shell; gives how it ended, and the name of $run."""
    programs = "".join(f'{name}() {{ {shlex.join(shop.command(name))} "$@"; }}\n'
                       for name in ("installer", "repair"))
    ended = shop.sh(f"{programs}{WORDS}{code}\necho $run")
    assert ended.status == 0, ended
    return ended, ended.out.split()[-1]


def said(out):
    """What a look says of the first product and format, and its last line, in short."""
    block = re.search("^Marbrel VST3: (.*(?:\n  [^ ].*)*)", out, re.M)[1]
    block = re.sub("\n  (last run|to undo it).*|(?<=unfinished) receipt: .*", "", block)
    for long, short in (HD, "hd"), (LOW, "low"), (": ", " "), ("\n  ", ", "):
        block = block.replace(long, short)
    return f"{block}: {out.splitlines()[-1]}"


@pytest.mark.parametrize("code, look, undone", [row[1:] for row in STATES],
                         ids=[row[0] for row in STATES])
def test_states(shop, code, look, undone):
    run = sh(shop, code)[1]
    ended = shop.tool("--test-root", "r", program="repair")
    words = re.sub("Marbrel-[0-9]+", "OLDER", said(ended.out).replace(run, "RUN"))
    assert f"{ended.status} {words}" == look.format(shop.place)
    ended = shop.tool("--test-root", "r", "--undo", run, program="repair")
    word = {f"Undid {run}": "Undid", f"{run} has nothing to undo": "nothing"}[
        ended.out.splitlines()[0]]
    assert f"{word} {ended.status} {sh(shop, 'installed')[0].out.splitlines()[0]}" == undone
    before = disk(shop.place / "r")
    ended = shop.tool("--test-root", "r", "--undo", run, program="repair")
    assert ended.out.startswith(f"{run} has nothing to undo\n")
    assert disk(shop.place / "r") == before


@pytest.mark.parametrize("code, options, message", [row[1:] for row in REFUSALS],
                         ids=[row[0] for row in REFUSALS])
def test_refusals(shop, code, options, message):
    run = sh(shop, f"umask 0; on 1; on 2; chmod -R a+rwX .; {code}")[1]
    before = disk(shop.place / "r") if os.geteuid() == 0 else None
    program = shutil.copy(shop.command("repair")[-1], shop.place / "program")
    user = {"user": 65534} if os.geteuid() == 0 else {}
    last = max(path.name for path in (shop.support / "Backups").iterdir())
    ended = shop.run(*shop.emulator, program, "--test-root", "r", "--undo",
                     *options.replace("$run", run).split(), **user)
    message = message.format(shop.place).replace("RUN", run).replace("LAST", last)
    assert ended == failed(message)
    assert not before or disk(shop.place / "r") == before


def test_the_words_and_the_facts_of_an_upgrade(shop):
    ended, run = sh(shop, "on 1; on 2; look; look --json; sha256sum [12]/CONTENTS.sha256")
    place = f"{shop.support}/Backups/{run}"
    assert f"""Marbrel VST3: well
  {HD}: installed
  {LOW}: installed
  last run: {place}
    original/{HD}
    original/{LOW}
    verified-backup/{HD}
    verified-backup/{LOW}
    previous-receipt.sha256
  to undo it, type: orvelline-repair --test-root '{shop.place}/r' --undo {run}
{WELL}
""" in ended.out
    before, after = [line[:64] for line in ended.out.splitlines()[-3:-1]]
    facts = json.loads(ended.out[ended.out.index("{"):ended.out.rindex("}") + 1])
    first = facts["formats"][0]
    older = first["runs"].pop()
    assert (first, older["holds"], facts["version"]) == (
        {"product": "Marbrel", "format": "VST3", "receipt": "whole", "digest": after, "tmp": False,
         "bundles": {HD: "installed", LOW: "installed"}, "interrupted": "", "undo": run,
         "before": before, "runs": [{"name": run, "holds": True}]}, False,
        shop.tool("--version", program="repair").out.strip())


def test_what_it_says_can_be_typed(shop):
    ended = sh(shop, "on 1; on 2; half; mv r it\\'s; repair --test-root it\\'s || :")[0]
    command = ended.out.splitlines()[-2].rpartition(": ")[2].replace("orvelline-", "")
    assert sh(shop, f"{command}; mv it\\'s r; installed")[0].out.splitlines()[-2] == (
        "hd=1 low=1 receipt=1")
