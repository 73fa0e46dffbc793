"""What the tests that are scripts share."""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True
from harness import blocks  # noqa: E402, F401

ROOT = Path(__file__).resolve().parent.parent
INSTALLER = os.environ.get("INSTALLER", str(ROOT / "build/release/orvelline-installer"))
UNDER_TEST = os.environ.get("UNDER_TEST", str(ROOT / "build/release/tests/installer-under-test"))


def scratch():
    """A temporary directory on a path without links, for a with statement."""
    return tempfile.TemporaryDirectory(dir=os.path.realpath(tempfile.gettempdir()))


def sh(code, cwd, **environment):
    """Runs shell commands, stopping at the first that fails; gives the finished process."""
    return subprocess.run(["sh", "-eu", "-c", code], cwd=cwd, env=os.environ | environment,
                          stdin=subprocess.DEVNULL, capture_output=True, text=True)


def expect(condition, *what):
    """Ends the test as failed unless the condition holds."""
    if not condition:
        sys.exit("FAILED: " + " ".join(map(str, what)))
