"""Runs that fail or are killed at each of their calls, and what orvelline-repair makes of them."""

import errno
import os
import re
import shutil

import pytest
from harness import HD, LOW, RECEIPT

pytestmark = pytest.mark.once
REPAIR = ["--test-root", "r", "--product", "Marbrel", "--format", "VST3"]
CHANGES = "mkdir|rename|write|sendfile|copy_file_range|fchmod|open.* creates"
# The calls that are made again when they were interrupted: all but what the library makes.
AGAIN = "openat|read|write|fstatat|posix_spawn|waitpid"
# What a run does, and whether the old package is installed before it.
RUNS = {"install": (["new"], False), "upgrade": (["new"], True),
        "removal": (["old", "--remove"], True)}


def entries(root):
    """Every file below a directory: its path, its inode and its content."""
    for place, _, names in os.walk(root):
        for path in (os.path.join(place, name) for name in names):
            with open(path, "rb") as file:
                yield os.path.relpath(path, root), os.fstat(file.fileno()).st_ino, file.read()


class Sweep:
    """One kind of run in a studio: how it starts, its calls, and how it ends."""

    def __init__(self, studio, kind):
        self.studio, (self.arguments, installed) = studio, RUNS[kind]
        (studio.place / "lsof").unlink()
        (studio.place / "lsof").symlink_to("/bin/false")  # nothing is loaded, in no time
        self.root = studio.place / "r"
        self.root.mkdir()
        for version in "old", "new":
            studio.package(version, {f"{key}/MacOS/a": f"{key} {version}" for key in (HD, LOW)})
        if installed:
            studio.done("old")
        shutil.copytree(self.root, studio.place / "start")
        self.start, self.runs = self.state(), self.backups()
        listed = [line.split() for line in self.run(LIST_CALLS=1)[2].splitlines()]
        self.calls = [" ".join(words[:-1]) for words in listed]
        self.requests = [int(words[-1]) for words in listed]
        self.end = self.state()

    def numbers(self, names):
        """The numbers of the calls of these names."""
        return [number for number, call in enumerate(self.calls, 1) if re.match(names, call)]

    def run(self, **faults):
        return self.studio.on(*self.arguments, **self.studio.faulty(**faults))

    def repair(self, *options, **faults):
        return self.studio.tool(*REPAIR, *options, program="repair", **self.studio.faulty(**faults))

    def state(self):
        """What a user has: every bundle's files, the receipts and their .tmp files."""
        return {path: content for path, _, content in entries(self.root) if "Backups/" not in path}

    def files(self):
        """Every file by its inode, wherever it is: none may ever be gone."""
        return {inode: content for _, inode, content in entries(self.root)}.items()

    def backups(self):
        """The directories of all runs."""
        return sorted(self.root.glob("support/Backups/*"))

    def again(self, **faults):
        """Runs once more from the start; gives how that ended."""
        if self.backups() != self.runs:
            shutil.rmtree(self.root)
            shutil.copytree(self.studio.place / "start", self.root)
        before = self.files()
        ended = self.run(**faults)
        assert before <= self.files()
        return ended

    def look(self):
        """What orvelline-repair says must be what stands on disk."""
        state = self.state()
        well = state in (self.start, self.end) and f"support/{RECEIPT}.tmp" not in state
        status, out, err = self.repair()
        assert (status, "interrupted" in out, err) == (int(not well), not well, ""), out

    def back(self):
        """Goes back to the start, as many runs as that takes."""
        before = self.files()
        for _ in self.backups():
            if self.state() != self.start:
                status, *said = self.repair("--back")
                assert status in (0, 1), said
        assert (self.state(), before <= self.files()) == (self.start, True)

    def fails(self, passed=False, **fault):
        """Lets a call fail, which must undo the run, or may be passed over."""
        status, out, err = self.again(**fault)
        state = self.state()
        if status == 0 and passed:
            assert (err, state) == ("", self.end), fault
            return err
        assert (status, out, err.replace("refused\n", "").count("\n")) == (3, "", 1), (fault, err)
        if state != self.start:
            # All is as it was, but for a .tmp file.
            assert self.start.items() <= state.items(), fault
            self.look()
            self.back()
        return err


@pytest.fixture(params=RUNS)
def sweep(studio, request):
    return Sweep(studio, request.param)


def test_a_call_fails(sweep):
    # Passed over are a close, and a read of a manifest, which ends there. Listings come later.
    listing = sweep.numbers("readdir")[0]
    for number, call in enumerate(sweep.calls, 1):
        passed = call == "close" or call == "read" and number < listing
        sweep.fails(passed, FAIL_CALL=number)


@pytest.mark.parametrize("sweep", ["upgrade"], indirect=True)
def test_a_call_is_interrupted(sweep):
    for number in sweep.numbers(AGAIN):
        status, _, err = sweep.again(FAIL_CALL=number, FAIL_WITH=errno.EINTR)
        assert (status, err, sweep.state()) == (0, "", sweep.end), sweep.calls[number - 1]


@pytest.mark.parametrize("sweep", ["upgrade"], indirect=True)
def test_memory_is_refused(sweep):
    # From the first load check of the commit on: two bundles have been checked before it.
    first = sweep.requests[sweep.numbers("pipe")[2] - 1]
    for number in range(first, sweep.requests[-1] + 1):
        assert "refused\n" in sweep.fails(True, FAIL_MALLOC=number), number


@pytest.mark.parametrize("tries", range(3))
def test_a_run_is_killed(sweep, tries):
    for number in sweep.numbers(CHANGES):
        assert sweep.again(KILL_CALL=number).status == -9
        if tries == 2:  # the first of them is killed as well
            sweep.run(KILL_CALL=number)
        if tries and sweep.state() == sweep.start:
            continue  # the next try is as good as a first
        for _ in range(tries):
            sweep.run()
        sweep.look()
        sweep.back()
        assert (sweep.run()[0], sweep.state()) == (0, sweep.end), number


def test_a_repair_is_killed(sweep):
    for number in [0, *sweep.numbers(CHANGES)]:  # first, of a run that has finished
        sweep.again(KILL_CALL=number)
        if sweep.state() == sweep.start:
            continue
        calls = sweep.repair("--back", LIST_CALLS=1)[2].splitlines()
        for rename in (place for place, call in enumerate(calls, 1) if call.startswith("rename")):
            sweep.again(KILL_CALL=number)
            before = sweep.files()
            assert sweep.repair("--back", KILL_CALL=rename).status == -9
            sweep.look()
            assert (sweep.repair("--back")[0], sweep.state()) == (0, sweep.start), (number, rename)
            assert before <= sweep.files()
