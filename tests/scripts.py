"""What the tests that are scripts share."""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True
ROOT = Path(__file__).resolve().parent.parent
INSTALLER = os.environ.get("INSTALLER", str(ROOT / "build/release/orvelline-installer"))
UNDER_TEST = os.environ.get("UNDER_TEST", str(ROOT / "build/release/tests/installer-under-test"))


def scratch():
    """A temporary directory on a path without links, for a with statement."""
    return tempfile.TemporaryDirectory(dir=os.path.realpath(tempfile.gettempdir()))


def blocks(document):
    """The shell commands of a document: pairs of the heading above and the fenced sh block."""
    pairs, heading, code = [], "", None
    for line in (ROOT / document).read_text().splitlines():
        if code is not None and line == "```":
            pairs.append((heading, "\n".join(code)))
            code = None
        elif code is not None:
            code.append(line)
        elif line == "```sh":
            code = []
        elif match := re.match(r"#+ (.*)", line):
            heading = match[1]
    return pairs


def sh(code, cwd, **environment):
    """Runs shell commands, stopping at the first that fails; gives the finished process."""
    return subprocess.run(["sh", "-eu", "-c", code], cwd=cwd, env=os.environ | environment,
                          stdin=subprocess.DEVNULL, capture_output=True, text=True)


def expect(condition, *what):
    """Ends the test as failed unless the condition holds."""
    if not condition:
        sys.exit("FAILED: " + " ".join(map(str, what)))
