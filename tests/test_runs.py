"""Undisturbed runs, and runs in which single calls fail or have odd results."""

import os
import resource

import pytest
from harness import (HD, INSTALLED, LIBRARY, LOADED, LOW, READY, RECEIPT, disk, failed, files,
                     lines, table)


def below(area, entries):
    """Puts entries into a directory; gives them together with its own entry."""
    return {area: "directory"} | {f"{area}/{path}": entry for path, entry in entries.items()}


def test_what_each_kind_of_run_leaves(studio):
    payload = {name: disk(studio.package(name, files(name)) / "payload") for name in ("one", "two")}
    staged = below("staged", {"VST3": "directory"})
    assert disk(studio.done("one")) == staged
    assert (studio.place / "calls").read_text() == ""
    # An upgrade, a reinstall and a downgrade all replace the previous version.
    for old, new in ("one", "two"), ("two", "two"), ("two", "one"):
        studio.lsof()
        backup = below("original", payload[old]) | below("verified-backup", payload[old])
        assert disk(studio.done(new)) == staged | backup | {
            "previous-receipt.sha256": lines(files(old)).encode()}
        assert disk(studio.plugins) == payload[new]
        assert (studio.support / RECEIPT).read_text() == lines(files(new))
        assert (studio.place / "calls").read_text() == 2 * "".join(
            f"-n {studio.plugins}/{key}/MacOS/a\n" for key in (HD, LOW))
    backup = below("original", payload["one"]) | below("verified-backup", payload["one"])
    assert disk(studio.done("one", "--remove")) == backup | {
        "removed-receipt.sha256": lines(files("one")).encode()}
    assert disk(studio.plugins) == {"VST3": "directory"}
    assert disk(studio.done("one", "--remove")) == {}
    assert [path.name for path in studio.support.iterdir()] == ["Backups"]


def test_asks_about_every_file_directly_in_a_macos_directory(studio):
    asked = ["Contents/MacOS/a", "Contents/MacOS/data.txt", "MacOS/a", "A/Versions/A/MacOS/a"]
    studio.package("p", {f"{HD}/{path}": "" for path in [
        *asked, "Contents/MacOS/inner/a", "Contents/macos/a", "Contents/Resources/MacOS"]})
    studio.done("p")
    assert studio.on("p", "--dry-run") == READY
    calls = (studio.place / "calls").read_text().splitlines()
    assert sorted(calls) == sorted(f"-n {studio.plugins}/{HD}/{path}" for path in asked)


@pytest.mark.parametrize("answer", table("""
a file is in use | exit 0
lsof fails | exit 2
lsof is killed | kill -9 $$
lsof warns, at length | head -c 300000 /dev/zero >&2; exit 1
"""))
def test_what_counts_as_loaded(installed, answer):
    installed.lsof({"*": answer})
    assert installed.on("1", "--dry-run") == failed(LOADED)


def test_copies_keep_their_permissions_whatever_the_umask(studio):
    # Only with libc++ does the umask remove permissions from a copied file. They are added again.
    bundle = studio.package("p", files(1, HD)) / "payload" / HD
    modes = {"MacOS/a": 0o557, "b": 0o446, "MacOS": 0o707, "": 0o555}
    for path, mode in modes.items():
        (bundle / path).chmod(mode)
    studio.done("p", umask=0o027)
    for copy in studio.plugins / HD, studio.done("p", umask=0o027) / "verified-backup" / HD:
        assert [f"{(copy / path).stat().st_mode & 0o777:o}" for path in modes] == [
            "557", "446", "700", "750"]


@pytest.mark.once
def test_no_permissions_are_set_where_none_is_missing(installed):
    # Some file systems refuse every change of permissions.
    calls = installed.on("2", **installed.faulty(LIST_CALLS=1)).err.splitlines()
    assert [call for call in calls if call.startswith("fchmodat")] == []


@pytest.mark.once
def test_what_a_verification_says_when_a_call_fails(installed):
    calls = installed.on("1", "--dry-run", **installed.faulty(LIST_CALLS=1)).err.splitlines()
    said = {installed.on("1", "--dry-run", **installed.faulty(FAIL_CALL=number)).err[:-1]
            for number, _ in enumerate(calls, 1)}
    assert said == {
        "", LIBRARY, LOADED, "Load check unavailable", "Read failed", "Unknown product",
        "Empty manifest", f"Manifest missing: {installed.place}/1/CONTENTS.sha256",
        f"Manifest missing: {installed.support}/{RECEIPT}", *(
            f"Cannot read {place}/{key}/{file}" for key in (HD, LOW) for file in ("MacOS/a", "b")
            for place in (installed.plugins, installed.place / "1/payload"))}


@pytest.mark.once
def test_a_receipt_that_cannot_be_created(installed):
    calls = installed.on("1", **installed.faulty(LIST_CALLS=1)).err.splitlines()
    last = max(number for number, call in enumerate(calls, 1) if "creates" in call)
    assert installed.on("1", **installed.faulty(FAIL_CALL=last)) == failed("Cannot write receipt")


@pytest.mark.once
def test_two_runs_at_the_same_time_of_the_clock(installed):
    clock = installed.faulty(STILL_CLOCK=1)
    backup = installed.support / "Backups/Marbrel-5000000000"
    assert installed.on("2", **clock) == (0, f"{INSTALLED}{backup}\n", "")
    before = disk(installed.place / "r")
    assert installed.on("1", **clock) == failed("Backup transaction already exists")
    assert disk(installed.place / "r") == before


def test_nobody_reads_what_a_run_says(installed):
    out, into = os.pipe()
    os.close(out)
    assert installed.on("2", "--dry-run", stdout=into) == (0, None, "")
    os.close(into)


@pytest.mark.once
def test_a_line_without_an_end_is_refused_before_it_fills_the_memory(installed):
    installed.sh("ln -sf /dev/zero 1/CONTENTS.sha256")
    assert installed.on("1", preexec_fn=lambda: resource.setrlimit(
        resource.RLIMIT_AS, (1 << 30, 1 << 30))) == failed("Malformed manifest")
