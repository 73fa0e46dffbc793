"""Runs in which the disk changes after preflight, and their rollback."""

import resource

import pytest
from harness import HD, LIBRARY, LOW, RECEIPT, disk, files, lines, table

# Variables of the shell code: the run directory, its staged second bundle, the new and the
# installed version of the second bundle, and the receipt.
WORDS = f"""run=$(echo r/support/Backups/*); run=${{run##* }} staged=$run/staged/{LOW}
new=2/payload/{LOW} old=r/plugins/{LOW} receipt=r/support/{RECEIPT}; """


def change(studio, when):
    """Runs shell code at a moment of the next run. Every file "x" counts as in use."""
    moment, code = when.split(": ", 1)
    studio.lsof({moment.split()[0]: WORDS + code, "*/x:1": "exit 0"})


def kept(studio):
    """The bundles in the last run directory, by area, such as "failed=HD staged=LOW"."""
    run = max(studio.support.glob("Backups/*"))
    return " ".join(f"{area}={name}" for area in ("original", "failed", "staged")
                    for name, key in (("HD", HD), ("LOW", LOW)) if (run / area / key).exists())


# What happens; when, and the shell code; the message; the bundles left in the run directory.
@pytest.mark.parametrize("when, message, left", table("""
a bundle changes early | PREFLIGHT_2 of a removal: >$old/x | Backup verification failed |
a payload changes | PREFLIGHT_2: >$new/x | Stage verification failed | staged=HD staged=LOW
a pipe cannot be copied | PREFLIGHT_2: mkfifo $new/x | filesystem error | staged=HD staged=LOW
a link leads to a file in use | COMMIT_1: ln -s a $old/MacOS/x | {LOADED} | failed=HD staged=LOW
a loop is in MacOS | COMMIT_1: ln -s x $old/MacOS/x | filesystem error | failed=HD staged=LOW
a loop is elsewhere | COMMIT_1: ln -s x $old/x | filesystem error | failed=HD staged=LOW
a bundle is loaded | COMMIT_2 of a removal: exit 0 | {LOADED} |
a bundle changes | COMMIT_2: >$old/x | Plugin changed during transaction | failed=HD staged=LOW
a staged bundle changes | COMMIT_2: >$staged/x | Installed readback mismatch | failed=HD failed=LOW
a staged new bundle changes | COMMIT_1 without LOW: >$staged/x | Installed readback mismatch |
    failed=HD failed=LOW
a bundle appears where one is to be | COMMIT_1 without LOW: mkdir $old | New destination appeared |
    failed=HD staged=LOW
a bundle appears where none was | COMMIT_1 of a removal without LOW: mkdir $old |
    New destination appeared |
a .tmp receipt appears | COMMIT_2: >$receipt.tmp |
    Stale transaction receipt preserved; contact support | failed=HD failed=LOW
a .tmp receipt is a dangling link | COMMIT_2: ln -s no $receipt.tmp |
    Symlink path refused: {}/r/support/{RECEIPT}.tmp | failed=HD failed=LOW
a receipt in place stays | COMMIT_2: >$run/previous-receipt.sha256; exit 0 | {LOADED} |
    failed=HD staged=LOW
a dangling link gives way to the previous receipt |
    COMMIT_2: mv $receipt $run/previous-receipt.sha256; ln -s no $receipt; exit 0 | {LOADED} |
    failed=HD staged=LOW
"""))
def test_rolls_back(installed, when, message, left):
    if "without LOW" in when:
        (installed.plugins / LOW).rename(installed.place / "gone")
    before = disk(installed.plugins)
    change(installed, when)
    options = ["--remove"] if "removal" in when else []
    assert installed.on("2", *options) == installed.ends(message)
    after = disk(installed.plugins)
    assert {path: entry for path, entry in after.items() if path in before} == before
    assert disk(installed.support)[RECEIPT] == lines(files(1)).encode()
    assert kept(installed) == left


@pytest.mark.parametrize("when, left", table("""
a payload's file becomes a link to an equal one | PREFLIGHT_2: mv $new/b x; ln -s $PWD/x $new/b |
    original previous-receipt.sha256 staged verified-backup
a dangling link takes the receipt's place | COMMIT_1: mv $receipt x; ln -s none $receipt |
    original staged verified-backup
"""))
def test_installs_although(installed, when, left):
    payload = disk(installed.place / "2/payload")
    change(installed, when)
    run = installed.done("2")
    assert disk(installed.plugins) == payload
    assert disk(installed.support)[RECEIPT] == lines(files(2)).encode()
    assert " ".join(sorted(path.name for path in run.iterdir())) == left


def test_a_rollback_that_fails_loses_nothing(installed):
    # The second bundle is loaded, and a file is in the way of the first, which has to move back.
    change(installed, "COMMIT_2: echo >$run/failed; exit 0")
    assert installed.on("2") == installed.ends(LIBRARY)
    for version, key in ("2", HD), ("1", LOW):
        payload = installed.place / version / "payload"
        assert disk(installed.plugins / key) == disk(payload / key)
    assert kept(installed) == "original=HD staged=LOW"


def test_a_receipt_that_stops_short(installed):
    # The receipt is longer than the file that the replacement of lsof writes.
    installed.package("2", receipt := files(2) | {f"{HD}/c/{number}": "" for number in range(20)})
    limit = len(lines(receipt)) - 10
    assert installed.on("2", preexec_fn=lambda: resource.setrlimit(
        resource.RLIMIT_FSIZE, (limit, limit))) == installed.ends("Receipt write failed")
    # Further installs fail. A removal works, because the previous versions are installed again.
    assert installed.on("1") == installed.ends(
        "Stale transaction receipt preserved; contact support")
    installed.done("1", "--remove")
    assert (installed.support / f"{RECEIPT}.tmp").read_text() == lines(receipt)[:limit]
