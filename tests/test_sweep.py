"""Runs that fail or are killed at each of their calls, and what orvelline-repair makes of them."""

import errno
import re
import shutil

import pytest
from harness import HD, LOW, RECEIPT

pytestmark = pytest.mark.once
CHANGES = "mkdir|rename|write|sendfile|copy_file_range|fchmod|open.* creates"
# What is made again after an interruption: every such call but those that the library makes.
AGAIN = "openat|read|write|fstatat|pipe|posix_spawn|waitpid"
# What a run does, and whether the old package is installed before it.
RUNS = {"install": (["--package", "new"], False), "upgrade": (["--package", "new"], True),
        "removal": (["--package", "old", "--remove"], True)}


class Sweep:
    """One kind of run in a studio: how it starts, its calls, and how it ends."""

    def __init__(self, studio, kind):
        self.studio, (self.arguments, installed) = studio, RUNS[kind]
        self.root = studio.place / "r"
        studio.sh("ln -sf /bin/false lsof; mkdir r")  # nothing is loaded, in no time
        for version in "old", "new":
            studio.package(version, {f"{key}/MacOS/a": f"{key} {version}" for key in (HD, LOW)})
        if installed:  # long ago, so that no time decides which calls a repair makes
            studio.done("old").rename(self.root / "support/Backups/Marbrel-1")
            studio.sh("find r -exec touch -d @1 {} +")
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

    def run(self, *arguments, program="installer", **faults):
        """Runs a program; every file that was there must be there afterwards, wherever it is."""
        before = {entry[1:] for entry in self.entries()}
        ended = self.studio.tool("--test-root", "r", *(arguments or self.arguments),
                                 program=program, **self.studio.faulty(**faults))
        assert not before - {entry[1:] for entry in self.entries()}
        return ended

    def repair(self, *options, **faults):
        words = "--product Marbrel --format VST3".split()
        return self.run(*words, *options, program="repair", **faults)

    def again(self, damaged="", **faults):
        """Runs once more from the start, and damages some files; gives how that ended."""
        shutil.rmtree(self.root)
        shutil.copytree(self.studio.place / "start", self.root)
        ended = self.run(**faults)
        for file in self.root.glob(damaged or "none"):
            file.write_text("damaged")
        return ended

    def look(self):
        state = self.state()
        well = state in (self.start, self.end) and f"support/{RECEIPT}.tmp" not in state
        status, out, err = self.repair()
        assert (status, "interrupted" in out, err) == (int(not well), not well, ""), out

    def back(self):
        for _ in range(4):
            if self.state() != self.start:
                assert self.repair("--back").status in (0, 1)
        assert self.state() == self.start

    def fails(self, passed=False, **fault):
        """Lets a call fail, which must undo the run, or may be passed over; gives what was said."""
        status, out, err = self.again(**fault)
        if status == 0 and passed:
            assert self.state() == self.end, fault
        else:
            lines = err.removeprefix("refused\n").count("\n")
            assert (status, out, lines) == (3, "", 1), (fault, err)
            assert self.start.items() <= self.state().items(), fault  # with a .tmp file, perhaps
            self.look()
            self.back()
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
        if tries and sweep.state() == sweep.start:
            continue  # the next try is as good as a first
        for _ in range(tries):
            sweep.run()
        sweep.look()
        sweep.back()
        assert (sweep.run().status, sweep.state()) == (0, sweep.end), number


@pytest.mark.parametrize("damaged", ["", "support/Backups/*/original/**/a"])
def test_a_repair_is_killed(sweep, damaged):
    for number in [0, *sweep.numbers(CHANGES)]:  # first, of a run that has finished
        sweep.again(damaged, KILL_CALL=number)
        if sweep.state() == sweep.start:
            continue
        calls = sweep.repair("--back", LIST_CALLS=1).err.splitlines()
        for rename in (place for place, call in enumerate(calls, 1) if call.startswith("rename")):
            sweep.again(damaged, KILL_CALL=number)
            assert sweep.repair("--back", KILL_CALL=rename).status == -9
            damaged or sweep.look()
            assert (sweep.repair("--back").status, sweep.state()) == (0, sweep.start), number
