"""Runs that fail or are killed at each of their calls, and their repair by orvelline-repair."""

import errno
import json
import re
import shutil

import pytest
from harness import HD, LOW, differences

pytestmark = pytest.mark.once
CHANGES = "mkdir|rename|write|sendfile|copy_file_range|fchmod|open.* creates"
# The calls that a run repeats after an interruption: all of its own, but none of the library.
AGAIN = "openat|read|write|fstatat|pipe|posix_spawn|waitpid"
# For each kind of run: its arguments, and whether the old package is installed before it.
RUNS = {"install": (["--package", "new"], False), "upgrade": (["--package", "new"], True),
        "removal": (["--package", "old", "--remove"], True)}
WELL = "Nothing needs to be done"


class Sweep:
    """One kind of run: the state before it, its calls, and the state after it."""

    def __init__(self, studio, kind):
        self.studio, (self.arguments, installed) = studio, RUNS[kind]
        self.root = studio.place / "r"
        studio.sh("ln -sf /bin/false lsof; mkdir r")  # a fast answer: nothing is loaded
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
        """The path, inode and content of each file below the root."""
        for path in self.root.rglob("*"):
            if path.is_file():
                yield str(path.relative_to(self.root)), path.stat().st_ino, path.read_bytes()

    def state(self):
        """The files outside Backups: the installed bundles, the receipts and their .tmp files."""
        return {path: content for path, _, content in self.entries() if "Backups/" not in path}

    def run(self, **faults):
        return self.call("installer", self.arguments, faults)

    def repair(self, *options, **faults):
        return self.call("repair", options, faults)

    def call(self, program, arguments, faults):
        """Runs a program. Each file from before must still exist afterwards, at any path."""
        before = {entry[1:] for entry in self.entries()}
        ended = self.studio.tool("--test-root", "r", *arguments, program=program,
                                 **self.studio.faulty(**faults))
        assert not before - {entry[1:] for entry in self.entries()}
        return ended

    def again(self, **faults):
        """Restores the state before the run, and runs again; gives the end."""
        shutil.rmtree(self.root)
        shutil.copytree(self.studio.place / "start", self.root)
        return self.run(**faults)

    def undo(self, **faults):
        """Undoes the run that --json names, if it names one."""
        self.run_undone = json.loads(self.repair("--json").out)["formats"][0]["undo"]
        return self.repair("--undo", self.run_undone, **faults)

    def obey(self):
        """Follows the last line until nothing needs to be done. Gives all last lines."""
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

    def is_at(self, wanted, number):
        """Compares the state with the wanted one. A failure names the call that had the fault."""
        call = self.calls[number - 1]
        assert (call, differences(wanted, self.state())) == (call, [])

    def fails(self, passed=False, number=0, **fault):
        """Makes a call fail. The run must roll back or, if `passed`, may succeed. Gives `err`."""
        ended = self.again(**fault or {"FAIL_CALL": number})
        if ended.status == 0 and passed:
            self.is_at(self.end, number)
            return ended.err
        said = ended.err.removeprefix("refused\n")
        assert (ended.status, ended.out, said.count("\n")) == (3, "", 1), self.calls[number - 1]
        wanted = {path: self.state().get(path) for path in self.start}
        assert differences(self.start, wanted) == [], self.calls[number - 1]  # besides a .tmp file
        self.obey()
        self.is_at(self.start, number)
        return ended.err


@pytest.fixture(params=RUNS)
def sweep(studio, request):
    return Sweep(studio, request.param)


def test_a_call_fails(sweep):
    # A run may succeed if close fails, or a read of a manifest, which then counts as its end. These
    # reads come before the first listing of a directory.
    listing = sweep.numbers("readdir")[0]
    passed = sweep.numbers("close") + [read for read in sweep.numbers("read ") if read < listing]
    for number, _ in enumerate(sweep.calls, 1):
        sweep.fails(number in passed, number)


@pytest.mark.parametrize("sweep", ["upgrade"], indirect=True)
def test_a_call_is_interrupted_or_refused_memory(sweep):
    for number in sweep.numbers(AGAIN):
        ended = sweep.again(FAIL_CALL=number, FAIL_WITH=errno.EINTR)
        assert (ended.status, ended.err) == (0, ""), sweep.calls[number - 1]
        sweep.is_at(sweep.end, number)
    # Memory is refused from the commit on. Its first load check is the third: preflight has two.
    first, last = (int(sweep.calls[number - 1].split()[-1])
                   for number in (sweep.numbers("pipe")[2], len(sweep.calls)))
    for request in range(first, last + 1):
        assert "refused\n" in sweep.fails(True, FAIL_MALLOC=request), request


@pytest.mark.parametrize("tries", range(3), ids=["once", "then run again", "twice, and run again"])
def test_a_run_is_killed(sweep, tries):
    for number in sweep.numbers(CHANGES):
        assert sweep.again(KILL_CALL=number).status == -9
        if tries == 2:
            sweep.run(KILL_CALL=number)
        for _ in range(tries):
            sweep.run()
        sweep.obey()
        sweep.is_at(sweep.start if sweep.state() == sweep.start else sweep.end, number)


def test_an_undoing_is_killed_or_fails(sweep):
    for number in [0, *sweep.numbers(CHANGES)]:  # 0: not killed, so a finished run is undone
        sweep.again(KILL_CALL=number)
        calls = sweep.undo(LIST_CALLS=1).err.splitlines()
        for rename in (place for place, call in enumerate(calls, 1) if call.startswith("rename")):
            for fault, status in ("KILL_CALL", -9), ("FAIL_CALL", 3):
                sweep.again(KILL_CALL=number)
                assert sweep.undo(**{fault: rename}).status == status
                assert sweep.repair("--undo", sweep.run_undone).status == 0, calls[rename - 1]
                sweep.is_at(sweep.start, number)
                ended = sweep.repair("--undo", sweep.run_undone)
                assert ended.out.startswith(f"{sweep.run_undone} has nothing to undo\n")
                sweep.is_at(sweep.start, number)


def test_a_call_of_a_look_fails(sweep):
    sweep.again(KILL_CALL=sweep.numbers("rename")[-1])
    well = sweep.repair("--json")
    for number, call in enumerate(sweep.repair("--json", LIST_CALLS=1).err.splitlines(), 1):
        ended = sweep.repair("--json", FAIL_CALL=number)
        if call.startswith(("close", "write")):
            assert ended == well, call
        else:
            assert (ended.status, ended.out, ended.err.count("\n")) == (3, "", 1), (call, ended)
