"""Runs that fail or are killed at each of their calls, and what orvelline-repair makes of them."""

import errno
import json
import re
import shutil

import pytest
from harness import HD, LOW

pytestmark = pytest.mark.once
CHANGES = "mkdir|rename|write|sendfile|copy_file_range|fchmod|open.* creates"
# What a run repeats after an interruption: all such calls, except those that the library makes.
AGAIN = "openat|read|write|fstatat|pipe|posix_spawn|waitpid"
# The arguments of each run, and whether the old package is installed before it.
RUNS = {"install": (["--package", "new"], False), "upgrade": (["--package", "new"], True),
        "removal": (["--package", "old", "--remove"], True)}
WELL = "Nothing needs to be done"


class Sweep:
    """One kind of run in a studio: how it starts, its calls, and how it ends."""

    def __init__(self, studio, kind):
        self.studio, (self.arguments, installed) = studio, RUNS[kind]
        self.root = studio.place / "r"
        studio.sh("ln -sf /bin/false lsof; mkdir r")  # nothing is loaded, in no time
        for version in "old", "new":
            studio.package(version, {f"{key}/MacOS/a": f"{key} {version}" for key in (HD, LOW)})
        if installed:
            studio.done("old")
        shutil.copytree(self.root, studio.place / "start")
        self.start = self.state()
        self.calls = self.run(LIST_CALLS=1).err.splitlines()
        self.end = self.state()

    def numbers(self, names):
        return [number for number, call in enumerate(self.calls, 1) if re.match(names, call)]

    def entries(self):
        """Every file below the root: its path, its inode and its content."""
        for path in self.root.rglob("*"):
            if path.is_file():
                yield str(path.relative_to(self.root)), path.stat().st_ino, path.read_bytes()

    def state(self):
        """What a user has: every bundle's files, the receipts and their .tmp files."""
        return {path: content for path, _, content in self.entries() if "Backups/" not in path}

    def run(self, **faults):
        return self.call("installer", self.arguments, faults)

    def repair(self, *options, **faults):
        return self.call("repair", options, faults)

    def call(self, program, arguments, faults):
        """Runs a program; every file that was there must be there afterwards, wherever it is."""
        before = {entry[1:] for entry in self.entries()}
        ended = self.studio.tool("--test-root", "r", *arguments, program=program,
                                 **self.studio.faulty(**faults))
        assert not before - {entry[1:] for entry in self.entries()}
        return ended

    def again(self, **faults):
        """Runs once more from the start; gives how that ended."""
        shutil.rmtree(self.root)
        shutil.copytree(self.studio.place / "start", self.root)
        return self.run(**faults)

    def undoable(self):
        """The run that can be undone, as the facts name it."""
        return json.loads(self.repair("--json").out)["formats"][0]["undo"]

    def obey(self):
        """Does what the last line says until nothing needs to be done; gives what it said."""
        said = []
        while not said or said[-1] != WELL:
            assert len(said) < 5, said
            status, out, err = self.repair()
            said.append(out.splitlines()[-1])
            assert (status, err) == (0 if said[-1] == WELL else 1, ""), out
            if "--undo" in said[-1]:
                self.repair("--undo", said[-1].split()[-1])
            elif said[-1].startswith("Move this file"):
                file = self.studio.place / said[-1].rpartition(": ")[2]
                file.rename(self.root / f"support/by hand {len(said)}")
            elif said[-1] != WELL:
                assert self.run().status == 0, said
        return said

    def fails(self, passed=False, **fault):
        """Lets a call fail, which must undo the run, or may be passed over; gives what was said."""
        status, out, err = self.again(**fault)
        if status == 0 and passed:
            assert self.state() == self.end, fault
        else:
            lines = err.removeprefix("refused\n").count("\n")
            assert (status, out, lines) == (3, "", 1), (fault, err)
            assert self.start.items() <= self.state().items(), fault  # with a .tmp file, perhaps
            self.obey()
            assert self.state() == self.start, fault
        return err


@pytest.fixture(params=RUNS)
def sweep(studio, request):
    return Sweep(studio, request.param)


def test_a_call_fails(sweep):
    # Passed over are a close, and a read of a manifest, which ends there. Listings come later.
    listing = sweep.numbers("readdir")[0]
    passed = sweep.numbers("close") + [read for read in sweep.numbers("read ") if read < listing]
    for number, _ in enumerate(sweep.calls, 1):
        sweep.fails(number in passed, FAIL_CALL=number)


@pytest.mark.parametrize("sweep", ["upgrade"], indirect=True)
def test_a_call_is_interrupted_or_refused_memory(sweep):
    for number in sweep.numbers(AGAIN):
        status, out, err = sweep.again(FAIL_CALL=number, FAIL_WITH=errno.EINTR)
        assert (status, out[:9], err) == (0, "INSTALLED", ""), sweep.calls[number - 1]
        assert sweep.state() == sweep.end, sweep.calls[number - 1]
    # From the first load check of the commit on: two bundles have been checked before it.
    first, last = (int(sweep.calls[number - 1].split()[-1])
                   for number in (sweep.numbers("pipe")[2], len(sweep.calls)))
    for number in range(first, last + 1):
        assert "refused\n" in sweep.fails(True, FAIL_MALLOC=number), number


@pytest.mark.parametrize("tries", range(3))
def test_a_run_is_killed(sweep, tries):
    for number in sweep.numbers(CHANGES):
        assert sweep.again(KILL_CALL=number).status == -9
        if tries == 2:  # the first of them is killed as well
            sweep.run(KILL_CALL=number)
        for _ in range(tries):
            sweep.run()
        said = sweep.obey()
        assert sweep.state() in (sweep.start, sweep.end), (sweep.calls[number - 1], said)


def test_an_undoing_is_killed_or_fails(sweep):
    for number in [0, *sweep.numbers(CHANGES)]:  # first, of a run that has finished
        sweep.again(KILL_CALL=number)
        run = sweep.undoable()
        if not run:
            continue
        calls = sweep.repair("--undo", run, LIST_CALLS=1).err.splitlines()
        for rename in (place for place, call in enumerate(calls, 1) if call.startswith("rename")):
            for fault, status in ("KILL_CALL", -9), ("FAIL_CALL", 3):
                sweep.again(KILL_CALL=number)
                run = sweep.undoable()
                assert sweep.repair("--undo", run, **{fault: rename}).status == status
                assert sweep.repair("--undo", run).status == 0, (number, calls[rename - 1])
                assert sweep.state() == sweep.start, (number, calls[rename - 1])
                ended = sweep.repair("--undo", run)
                assert ended.out.startswith(f"{run} has nothing to undo\n"), ended
                assert sweep.state() == sweep.start, (number, calls[rename - 1])


def test_a_call_of_a_look_fails(sweep):
    sweep.again(KILL_CALL=sweep.numbers("rename")[-1])
    well = sweep.repair("--json")
    for number, call in enumerate(sweep.repair("--json", LIST_CALLS=1).err.splitlines(), 1):
        ended = sweep.repair("--json", FAIL_CALL=number)
        if call.startswith(("close", "write")):
            assert ended == well, call
        else:
            assert (ended.status, ended.out, ended.err.count("\n")) == (3, "", 1), (call, ended)
