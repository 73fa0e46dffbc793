"""Runs that go wrong between preflight and their end. The stand-in for lsof, asked once for each
bundle in preflight and once in the commit, changes the disk at exactly these moments."""

import resource

import pytest
from harness import HD, LIBRARY, LOADED, LOW, RECEIPT, disk, files, lines

STALE = "Stale transaction receipt preserved; contact support"
MISMATCH = "Installed readback mismatch"
LINK = f"Symlink path refused: {{}}/r/support/{RECEIPT}.tmp"
GONE = "mv $plugins/$Low gone"
LINK_IN_USE = "printf '#!/bin/sh\ncase $2 in */x) exit 0; esac; exit 1' >lsof"
# What the pieces of shell need: the transaction directory and an area of it, and the bundles.
WORDS = f"""t=$(echo r/support/Backups/*); t=${{t##* }} staged=$t/staged plugins=r/plugins
payload=2/payload receipt=r/support/{RECEIPT} HD={HD} Low={LOW}; """


def last(studio, area):
    """What stands in an area of the last run's transaction directory: the bundles there."""
    place = max(studio.support.glob("Backups/*")) / area
    return [key for key in (HD, LOW) if (place / key).exists()]


@pytest.mark.parametrize("changes, options, message, failed, staged", [
    # Before the commit region: the backup and the staged copy.
    ({2: "echo >$plugins/$Low/x"}, ["--remove"], "Backup verification failed", [], []),
    ({2: "echo >$payload/$Low/x"}, [], "Stage verification failed", [], [HD, LOW]),
    ({2: "mkfifo $payload/$Low/x"}, [], LIBRARY, [], [HD, LOW]),
    # Inside: each step of each bundle. A link to a file is asked about under its own name.
    ({3: f"ln -s a $plugins/$Low/MacOS/x; {LINK_IN_USE}"}, [], LOADED, [HD], [LOW]),
    ({4: "exit 0"}, ["--remove"], LOADED, [], []),
    ({4: "echo >$plugins/$Low/x"}, [], "Plugin changed during transaction", [HD], [LOW]),
    ({3: "echo >$staged/$HD/x"}, [], MISMATCH, [HD], [LOW]),
    ({4: "echo >$receipt.tmp"}, [], STALE, [HD, LOW], []),
    ({4: "ln -s no $receipt.tmp"}, [], LINK, [HD, LOW], []),
    # What stands at the receipt's path is never replaced.
    ({4: "echo >$t/previous-receipt.sha256; exit 0"}, [], LOADED, [HD], [LOW]),
    # The second bundle was not installed.
    ({1: GONE, 2: "mkdir $plugins/$Low"}, [], "New destination appeared", [HD], [LOW]),
    ({1: GONE, 2: "mkdir $plugins/$Low"}, ["--remove"], "New destination appeared", [], []),
    ({1: GONE, 2: "echo >$staged/$Low/x"}, [], MISMATCH, [HD, LOW], []),
])
def test_puts_back_what_stood_there(installed, changes, options, message, failed, staged):
    before = disk(installed.plugins)
    installed.lsof({call: WORDS + change for call, change in changes.items()})
    assert installed.on("2", *options) == installed.ends(message)
    if GONE in changes.values():  # nothing, or an empty directory, is in its place
        (installed.place / "gone").rename(installed.plugins / LOW)
    after = disk(installed.plugins)
    assert {path: entry for path, entry in after.items() if path[-2:] != "/x"} == before
    assert (installed.support / RECEIPT).read_text() == lines(files(1))
    assert [last(installed, area) for area in ("original", "failed", "staged")] == [
        [], failed, staged]


def test_a_rollback_that_fails_loses_nothing(installed):
    # The second is loaded, and an obstacle stands where the first new bundle has to go.
    installed.lsof({4: f"{WORDS}echo >$t/failed; exit 0"})
    assert installed.on("2") == installed.ends(LIBRARY)
    for version, key in ("2", HD), ("1", LOW):
        payload = installed.place / version / "payload"
        assert disk(installed.plugins / key) == disk(payload / key)
    assert (last(installed, "original"), last(installed, "staged")) == ([HD], [LOW])


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
