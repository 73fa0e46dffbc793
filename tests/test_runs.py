"""Whole runs that nothing disturbs: what each kind leaves on disk, and what it asks lsof."""

import os
import resource

import pytest
from harness import (HD, INSTALLED, LIBRARY, LOADED, LOW, READY, RECEIPT, disk, failed, files,
                     lines)


def test_what_each_kind_of_run_leaves(studio):
    payload = {name: disk(studio.package(name, files(name)) / "payload") for name in ("one", "two")}
    empty = {"staged": "directory", "staged/VST3": "directory"}
    kept = {name: {f"{area}/{path}".strip("/"): entry
                   for path, entry in ({"": "directory"} | payload[name]).items()
                   for area in ("original", "verified-backup")} for name in payload}
    assert disk(studio.done("one")) == empty
    assert (studio.place / "calls").read_text() == ""
    # An upgrade, a reinstall, a downgrade: each replaces what was there.
    for old, new in ("one", "two"), ("two", "two"), ("two", "one"):
        studio.lsof()
        assert disk(studio.done(new)) == empty | kept[old] | {
            "previous-receipt.sha256": lines(files(old)).encode()}
        assert disk(studio.plugins) == payload[new]
        assert (studio.support / RECEIPT).read_text() == lines(files(new))
        assert (studio.place / "calls").read_text() == 2 * "".join(
            f"-n {studio.plugins}/{key}/MacOS/a\n" for key in (HD, LOW))
    assert disk(studio.done("one", "--remove")) == kept["one"] | {
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
    for answer in "exit 0", "exit 2", "kill -9 $$", "head -c 300000 /dev/zero >&2; exit 1":
        studio.lsof({3: answer})
        assert studio.on("p", "--dry-run") == failed(LOADED), answer


def test_permissions_of_copies(studio):
    bundle = studio.package("p", files(1, HD)) / "payload" / HD
    modes = {"MacOS/a": 0o4557, "b": 0o446, "MacOS": 0o707, "": 0o555}
    for path, mode in modes.items():
        (bundle / path).chmod(mode)
    for _ in "install", "reinstall":
        assert studio.on("p", umask=0o027).status == 0
    for copy in studio.plugins / HD, next(studio.support.glob(f"Backups/*/verified-backup/{HD}")):
        assert [f"{(copy / path).stat().st_mode & 0o7777:o}" for path in modes] == [
            "4557", "446", "700", "750"]


@pytest.mark.once
def test_calls_that_behave_in_odd_ways(installed):
    # What a verification says when one of its calls fails.
    calls = installed.on("1", "--dry-run", **installed.faulty(LIST_CALLS=1)).err.splitlines()
    said = {installed.on("1", "--dry-run", **installed.faulty(FAIL_CALL=number)).err[:-1]
            for number, _ in enumerate(calls, 1)}
    assert said == {
        "", LIBRARY, LOADED, "Load check unavailable", "Read failed", "Unknown product",
        "Empty manifest", f"Manifest missing: {installed.place}/1/CONTENTS.sha256",
        f"Manifest missing: {installed.support}/{RECEIPT}", *(
            f"Cannot read {place}/{key}/{file}" for key in (HD, LOW) for file in ("MacOS/a", "b")
            for place in (installed.plugins, installed.place / "1/payload"))}
    calls = installed.on("1", **installed.faulty(LIST_CALLS=1)).err.splitlines()
    last = max(number for number, call in enumerate(calls, 1) if "creates" in call)
    assert installed.on("1", **installed.faulty(FAIL_CALL=last)) == failed("Cannot write receipt")
    # The clock stands still between two runs.
    clock = installed.faulty(STILL_CLOCK=1)
    backup = installed.support / "Backups/Marbrel-5000000000"
    assert installed.on("2", **clock) == (0, f"{INSTALLED}{backup}\n", "")
    before = disk(installed.place / "r")
    assert installed.on("1", **clock) == failed("Backup transaction already exists")
    assert disk(installed.place / "r") == before
    # Nobody reads what it says.
    out, into = os.pipe()
    os.close(out)
    assert installed.on("2", "--dry-run", stdout=into).status == 0
    # Reads give less than they were asked for, here in the middle of the product's name.
    assert installed.on("2", "--dry-run", **installed.faulty(SHORT_READS=3)) == READY
    (installed.place / "2/PRODUCT.txt").write_text("MarbrelX\n")
    assert installed.on("2", **installed.faulty(SHORT_READS=7)) == failed("Unknown product")
    # A line without an end is refused before it fills the memory.
    installed.sh("ln -sf /dev/zero 1/CONTENTS.sha256")
    assert installed.on("1", preexec_fn=lambda: resource.setrlimit(
        resource.RLIMIT_AS, (1 << 30, 1 << 30))) == failed("Malformed manifest")
