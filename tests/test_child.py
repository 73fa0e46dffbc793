"""The load check's child and the signals, in the surroundings that a run may be started in."""

import os
import signal

import pytest
from harness import INSTALLED, LOADED, RECEIPT, disk, failed, files, lines


@pytest.mark.parametrize("prepare", [
    lambda: os.close(0), lambda: os.close(1), lambda: os.close(2), lambda: os.closerange(0, 3),
    lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN)])
def test_holds_in_any_surroundings(installed, prepare):
    installed.lsof({1: "echo >&2; exit 1", 2: "echo; head -c 200000 /dev/zero; exit 1"})
    assert installed.on("2", preexec_fn=prepare).status == 3
    assert installed.on("2", preexec_fn=prepare).status == 0
    assert (installed.support / RECEIPT).read_text() == lines(files(2))


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT])
def test_signals_end_a_run_before_the_commit_and_wait_during_it(installed, number):
    # Tests that run in the background may have been started with it ignored.
    default = {"preexec_fn": lambda: signal.signal(number, signal.SIG_DFL)}
    installed.lsof({2: f"kill -{number:d} $PPID"})
    assert installed.on("2", **default).status == -number
    installed.lsof({3: f"kill -{number:d} $PPID"})
    assert installed.on("2", **default)[1].startswith(INSTALLED)
    # One that ends a hanging check as well rolls the run back.
    installed.lsof({4: f"kill -{number:d} $PPID $$"})
    assert installed.on("1", **default) == failed(LOADED)
    assert disk(installed.plugins) == disk(installed.place / "2/payload")
