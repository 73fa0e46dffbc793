"""The child of the load check, and signals, in unusual environments of a run."""

import shlex
import signal

import pytest
from harness import LOADED, RECEIPT, disk, failed, files, lines, table


@pytest.mark.parametrize("prepare", table("""
standard input is closed | exec <&-
standard output is closed | exec >&-
standard error is closed | exec 2>&-
all three are closed | exec <&- >&- 2>&-
the ends of children are ignored | trap '' CHLD
"""))
def test_an_upgrade_in_odd_surroundings(installed, prepare):
    before = disk(installed.place / "r")
    upgrade = f"{prepare}; {shlex.join(installed.command())} --package 2 --test-root r"
    installed.lsof({"PREFLIGHT_1": "echo >&2; exit 1"})
    assert installed.sh(upgrade).status == 3
    assert disk(installed.place / "r") == before
    installed.lsof({"PREFLIGHT_2": "echo; head -c 200000 /dev/zero; exit 1"})
    assert installed.sh(upgrade).status == 0
    assert disk(installed.plugins) == disk(installed.place / "2/payload")
    assert (installed.support / RECEIPT).read_text() == lines(files(2))


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT],
                         ids=lambda number: number.name)
def test_a_signal_ends_a_run_before_the_commit_and_waits_during_it(installed, number):
    # A test that runs in the background may have been started with the signal ignored.
    default = {"preexec_fn": lambda: signal.signal(number, signal.SIG_DFL)}
    installed.lsof({"PREFLIGHT_2": f"kill -{number:d} $PPID"})
    ended = installed.on("2", **default)
    assert ended == (-number, "", ended.err if installed.emulator else "")  # it tells of the signal
    installed.lsof({"COMMIT_1": f"kill -{number:d} $PPID"})
    installed.done("2", **default)
    # A signal that also ends lsof makes the run roll back.
    installed.lsof({"COMMIT_2": f"kill -{number:d} $PPID $$"})
    assert installed.on("1", **default) == failed(LOADED)
    assert disk(installed.plugins) == disk(installed.place / "2/payload")
