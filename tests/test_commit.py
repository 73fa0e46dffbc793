"""Runs in which something changes between preflight and their end, and what they roll back."""

import resource

import pytest
from harness import (COMMIT_1, COMMIT_2, HD, LIBRARY, LOADED, LOW, PREFLIGHT_2, RECEIPT, disk,
                     files, lines, titled)

INSTALL, REMOVE = [], ["--remove"]
MISMATCH, APPEARED = "Installed readback mismatch", "New destination appeared"
STALE = "Stale transaction receipt preserved; contact support"
# What the pieces of shell know: the run's directory, a bundle that it has staged, and of the second
# bundle the new and the installed version.
WORDS = f"""run=$(echo r/support/Backups/*); run=${{run##* }} staged=$run/staged/{LOW}
new=2/payload/{LOW} old=r/plugins/{LOW} receipt=r/support/{RECEIPT}; """
GONE = {"before": "mv $old x"}


def change(studio, changes):
    """Has pieces of shell run before the next run, and at moments of it."""
    studio.sh(WORDS + changes.get("before", ":"))
    studio.lsof({moment: WORDS + piece for moment, piece in changes.items()})


def kept(studio):
    """The bundles in the areas of the last run's directory, such as "failed=HD staged=LOW"."""
    run = max(studio.support.glob("Backups/*"))
    return " ".join(f"{area}={name}" for area in ("original", "failed", "staged")
                    for name, key in (("HD", HD), ("LOW", LOW)) if (run / area / key).exists())


# What happens, in which kind of run, by which changes; what the run says, and what it has kept.
@pytest.mark.parametrize("kind, changes, message, left", titled(
    ("a bundle changes before it is copied", REMOVE, {PREFLIGHT_2: "echo >$old/x"},
     "Backup verification failed", ""),
    ("a payload changes before it is copied", INSTALL, {PREFLIGHT_2: "echo >$new/x"},
     "Stage verification failed", "staged=HD staged=LOW"),
    ("a pipe cannot be copied", INSTALL, {PREFLIGHT_2: "mkfifo $new/x"},
     LIBRARY, "staged=HD staged=LOW"),
    ("a link in MacOS leads to a file in use", INSTALL,
     {COMMIT_1: "ln -s a $old/MacOS/x", "*/x:1": "exit 0"}, LOADED, "failed=HD staged=LOW"),
    ("a loop of links is in MacOS", INSTALL, {COMMIT_1: "ln -s x $old/MacOS/x"},
     LIBRARY, "failed=HD staged=LOW"),
    ("a loop of links is elsewhere", INSTALL, {COMMIT_1: "ln -s x $old/x"},
     LIBRARY, "failed=HD staged=LOW"),
    ("a bundle is loaded", REMOVE, {COMMIT_2: "exit 0"}, LOADED, ""),
    ("a bundle changes after its backup", INSTALL, {COMMIT_2: "echo >$old/x"},
     "Plugin changed during transaction", "failed=HD staged=LOW"),
    ("a staged bundle changes", INSTALL, {COMMIT_2: "echo >$staged/x"},
     MISMATCH, "failed=HD failed=LOW"),
    ("a staged bundle without an old one changes", INSTALL, GONE | {COMMIT_1: "echo >$staged/x"},
     MISMATCH, "failed=HD failed=LOW"),
    ("a bundle appears before an install", INSTALL, GONE | {COMMIT_1: "mkdir $old"},
     APPEARED, "failed=HD staged=LOW"),
    ("a bundle appears before a removal", REMOVE, GONE | {COMMIT_1: "mkdir $old"}, APPEARED, ""),
    ("a .tmp receipt is there", INSTALL, {COMMIT_2: "echo >$receipt.tmp"},
     STALE, "failed=HD failed=LOW"),
    ("a .tmp receipt is a dangling link", INSTALL, {COMMIT_2: "ln -s none $receipt.tmp"},
     f"Symlink path refused: {{}}/r/support/{RECEIPT}.tmp", "failed=HD failed=LOW"),
    ("a receipt that is there is not replaced", INSTALL,
     {COMMIT_2: "echo >$run/previous-receipt.sha256; exit 0"}, LOADED, "failed=HD staged=LOW"),
    ("a receipt that is a dangling link is replaced", INSTALL,
     {COMMIT_2: "mv $receipt $run/previous-receipt.sha256; ln -s none $receipt; exit 0"},
     LOADED, "failed=HD staged=LOW"),
))
def test_rolls_back(installed, kind, changes, message, left):
    change(installed, changes)
    before = disk(installed.plugins)
    assert installed.on("2", *kind) == installed.ends(message)
    after = disk(installed.plugins)
    assert {path: entry for path, entry in after.items() if path in before} == before
    assert disk(installed.support)[RECEIPT] == lines(files(1)).encode()
    assert kept(installed) == left


@pytest.mark.parametrize("changes, left", titled(
    ("a file of the payload becomes a link to an equal one",
     {PREFLIGHT_2: "mv $new/b x; ln -s $PWD/x $new/b"},
     "original previous-receipt.sha256 staged verified-backup"),
    ("a dangling link takes the receipt's place",
     {COMMIT_1: "mv $receipt x; ln -s none $receipt"}, "original staged verified-backup")))
def test_installs_although(installed, changes, left):
    payload = disk(installed.place / "2/payload")
    change(installed, changes)
    run = installed.done("2")
    assert disk(installed.plugins) == payload
    assert disk(installed.support)[RECEIPT] == lines(files(2)).encode()
    assert " ".join(sorted(path.name for path in run.iterdir())) == left


def test_a_rollback_that_fails_loses_nothing(installed):
    # The second is loaded, and an obstacle stands where the first new bundle has to go.
    change(installed, {COMMIT_2: "echo >$run/failed; exit 0"})
    assert installed.on("2") == installed.ends(LIBRARY)
    for version, key in ("2", HD), ("1", LOW):
        payload = installed.place / version / "payload"
        assert disk(installed.plugins / key) == disk(payload / key)
    assert kept(installed) == "original=HD staged=LOW"


def test_a_receipt_that_stops_short(installed):
    # Longer than what the stand-in for lsof writes.
    installed.package("2", receipt := files(2) | {f"{HD}/c/{number}": "" for number in range(20)})
    limit = len(lines(receipt)) - 10
    assert installed.on("2", preexec_fn=lambda: resource.setrlimit(
        resource.RLIMIT_FSIZE, (limit, limit))) == installed.ends("Receipt write failed")
    # An install goes no further from now on; a removal does not mind, and finds what stood there.
    assert installed.on("1") == installed.ends(STALE)
    installed.done("1", "--remove")
    assert (installed.support / f"{RECEIPT}.tmp").read_text() == lines(receipt)[:limit]
