"""What orvelline-repair tells, refuses and brings back, besides the sweep of killed runs."""

import shlex
from fnmatch import fnmatch

import pytest
from harness import HD, LOADED, LOW, RECEIPT, disk, failed, files, write

PLACE = ["--product", "Marbrel", "--format", "VST3"]
AU = "Components/MarbrelHDAU.component"
WORDS = f"""t=$(echo r/support/Backups/*); t=${{t##* }} HD=r/plugins/{HD}
original=$t/original/{HD} backup=$t/verified-backup/{HD}; """


def repair(studio, *options):
    return studio.tool("--test-root", "r", *options, program="repair")


@pytest.fixture
def upgraded(studio):
    """A studio where package 2 has taken the place of 1."""
    for version in 1, 2:
        studio.package(str(version), files(version))
        studio.done(str(version))
    return studio


def trees(studio):
    """What a run can move: the bundles and the receipts in place."""
    return disk(studio.plugins), {path.name: path.read_bytes()
                                  for path in studio.support.glob("*.sha256*")}


@pytest.mark.parametrize("options, message", [
    (["--verbose"], "Unknown option: --verbose"),
    (["--back"], "Product and format required"),
    (["--product", "Marbrel"], "Product and format required"),
    (["--product", "marbrel", "--format", "VST3"], "Unknown product"),
    (["--product", "Marbrel", "--format", "AU"], "Unexpected format"),
])
def test_command_line(studio, options, message):
    assert repair(studio, *options) == failed(message)


@pytest.mark.parametrize("change, message", [
    ("mv $HD x; ln -s ../../../x $HD", f"Symlink path refused: {{}}/r/plugins/{HD}"),
    ("mv $original x; ln -s ../x $original", "Symlink path refused: {}/r/support/*"),
    ("printf '#!/bin/sh\\nexit 0\\n' >lsof", LOADED),
    (f"mkdir -p $t/repaired/{HD}/x", "New destination appeared"),
    (f"mkdir $t/repaired; echo >$t/repaired/{RECEIPT}", "New destination appeared"),
    ("echo >$t/repaired", "New destination appeared"),
    ("echo x >$original/b; rm $t/previous-receipt.sha256",
     "Backup verification failed; {}/r/support/* and the backup differ"),
    ("echo x >$backup/b",
     "Backup verification failed; {}/r/support/* is whole, the backup is not"),
])
def test_refusals(upgraded, change, message):
    assert upgraded.sh(WORDS + change)[0] == 0
    before = disk(upgraded.place / "r")
    status, out, err = repair(upgraded, *PLACE, "--back")
    assert (status, out) == (3, "") and fnmatch(err, f"{message.format(upgraded.place)}\n"), err
    assert disk(upgraded.place / "r") == before


@pytest.mark.parametrize("damage", [
    "echo x >$original/b", "rm -r $original $HD", "rm -r $t/original"])
def test_a_proved_backup_takes_the_place_of_a_damaged_original(upgraded, damage):
    assert upgraded.sh(WORDS + damage)[0] == 0
    assert repair(upgraded, *PLACE, "--back")[0] == 0
    assert disk(upgraded.plugins) == disk(upgraded.place / "1/payload")
    assert repair(upgraded, *PLACE, "--back")[0] == 0
    assert trees(upgraded) == ({"VST3": "directory"}, {})


def test_what_it_tells_and_says_to_type(upgraded):
    program = f'#!/bin/sh\nexec {shlex.join(upgraded.command("repair"))} "$@"\n'
    write(upgraded.place / "orvelline-repair", program).chmod(0o755)
    quellotrone = "VST3/Quellotrone.vst3"
    upgraded.package("q", files(1, quellotrone), "Quellotrone")
    other = upgraded.done("q")
    assert upgraded.sh(f"echo >r/plugins/{quellotrone}/.DS_Store")[0] == 0
    for call, *options in (4,), (3, "--remove"):  # behind the first bundle, ahead of it
        upgraded.lsof({call: "kill -9 $PPID"})
        assert upgraded.on("1", *options)[0] == -9
    upgraded.lsof()
    assert upgraded.sh(f"echo >r/support/{RECEIPT}.tmp")[0] == 0
    assert upgraded.on("1")[0] == 3
    _, _, killed, nothing, undone = sorted(other.parent.glob("Marbrel-*"))
    status, out, err = repair(upgraded)
    assert (status, out, err) == (1, f"""Marbrel VST3: a run was interrupted
  an install: {killed}
  {HD} in place: new
    the old one: {killed}/original/{HD}
  {LOW} in place: old
    the new one: {killed}/staged/{LOW}
  receipt in place: old
  left by an interrupted run: {upgraded.support}/{RECEIPT}.tmp
  passed over, undone: {undone}
  passed over, changed nothing: {nothing}
Quellotrone VST3: the last run has finished
  an install: {other}
  {quellotrone} in place: changed since
  receipt in place: new
Close all hosts and type: orvelline-repair --test-root '{upgraded.place}/r' {' '.join(PLACE)} --back
""", "")
    status, out, err = upgraded.sh(f"PATH=.:$PATH {out.rpartition(': ')[2]}")
    assert (status, err) == (0, "") and out.endswith("\nNothing needs to be done\n"), out
    assert disk(upgraded.plugins / HD) == disk(upgraded.place / f"2/payload/{HD}")


def test_what_somebody_puts_in_place_later_stays(studio):
    studio.package("1", files(1))
    studio.done("1")
    assert studio.sh(f"mv r/plugins/{HD} x")[0] == repair(studio, *PLACE, "--back")[0] == 0
    assert studio.sh(f"mv x r/plugins/{HD}")[0] == repair(studio)[0] == 0


def test_what_came_back_is_read_back(upgraded):
    upgraded.lsof({1: f"{WORDS}echo x >$original/b"})
    assert repair(upgraded, *PLACE, "--back") == failed("Installed readback mismatch")


def test_a_killed_run_that_has_left_all_as_it_was(upgraded):
    upgraded.lsof({4: "kill -9 $PPID"})
    assert upgraded.on("2")[0] == -9
    assert repair(upgraded)[0] == 0
    upgraded.lsof()
    assert repair(upgraded, *PLACE, "--back")[0] == repair(upgraded, *PLACE, "--back")[0] == 0
    assert disk(upgraded.plugins) == disk(upgraded.place / "1/payload")


def test_each_step_back_leaves_others_alone(upgraded):
    # Another format, and a package without the second bundle, which somebody writes to.
    upgraded.package("3", files(3, HD))
    upgraded.package("au", files(1, AU))
    states = [trees(upgraded)]
    for package, options in ("3", []), ("3", ["--remove"]):
        upgraded.done(package, *options)
        upgraded.sh(f"cp -r r/plugins/{LOW} x; rm -r r/plugins/{LOW}; mv x r/plugins/{LOW}")
        states.append(trees(upgraded))
    upgraded.done("au")
    others = disk(upgraded.plugins / "Components")
    for bundles, receipts in reversed(states[:-1]):
        assert repair(upgraded, *PLACE, "--back")[0] == 0
        assert disk(upgraded.plugins / "VST3") == {
            path[5:]: entry for path, entry in bundles.items() if path != "VST3"}
        assert trees(upgraded)[1].items() >= receipts.items()
    assert disk(upgraded.plugins / "Components") == others
