"""For all tests: makes packages and a replacement of lsof, runs programs, and reads the disk."""

import hashlib
import os
import re
import shlex
import subprocess
from collections import deque
from pathlib import Path
from typing import NamedTuple

import pytest

ROOT = Path(__file__).resolve().parent.parent
# All variables of a program. Those of the caller must not change the result of a test.
ENVIRONMENT = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8"}
HD, LOW = "VST3/MarbrelHD.vst3", "VST3/MarbrelLowCPU.vst3"
RECEIPT = "Marbrel-VST3.sha256"
READY = (0, "READY: verified package; no files changed\n", "")
INSTALLED, REMOVED = "INSTALLED; rollback backup: ", "REMOVED to backup: "
LIBRARY = "filesystem error"
LOADED = "Plugin is loaded or load check unavailable; save/close hosts first"
# The moments at which a run calls lsof for the first and for the second installed bundle. Each is a
# pattern: the path, and the number of the call for this path.
MOMENTS = {"PREFLIGHT_1": f"*{HD}/*:1", "PREFLIGHT_2": f"*{LOW}/*:1",
           "COMMIT_1": f"*{HD}/*:2", "COMMIT_2": f"*{LOW}/*:2"}


class Ended(NamedTuple):
    """How a command ended. If `err` is a message of the C++ library, it is cut to LIBRARY."""

    status: int
    out: str
    err: str


def failed(message):
    """The end of a run that fails with this message."""
    return 3, "", f"{message}\n"


def table(text):
    """The rows of a table for parametrize. The first cell is a sentence, which becomes the name of
    the test. Indented lines continue a row. Each value in the last cell, separated by "or", makes a
    test."""
    cells = [re.split(r"\s*\|\s*", row) for row in re.split(r"\n(?=\S)", text.strip())]
    return [pytest.param(*row, value, id=sentence) for sentence, *row, values in cells
            for value in re.split(r"\sor\s+", values)]


def disk(root):
    """The entries below a directory: the bytes of a file, the target of a link, or the type."""
    return {str(path.relative_to(root)): f"link to {os.readlink(path)}" if path.is_symlink() else
            path.read_bytes() if path.is_file() else
            "directory" if path.is_dir() else "special" for path in Path(root).rglob("*")}


def differences(before, after):
    """A line for each path whose entry differs in two results of `disk`."""
    return [f"{path}: {after.get(path, 'nothing')!r:.999}, not {before.get(path, 'nothing')!r:.999}"
            for path in sorted({*before, *after}) if before.get(path) != after.get(path)]


def lines(files):
    """The CONTENTS.sha256 of files, which are given as a dictionary from path to content."""
    return "".join(f"{hashlib.sha256(files[path].encode()).hexdigest()}  {path}\n"
                   for path in sorted(files, key=os.fsencode))


def files(version, *keys):
    """The files of the named bundles. If none is named, of both VST3 bundles."""
    return {f"{key}/{file}": f"{key} {version}" for key in keys or (HD, LOW)
            for file in ("MacOS/a", "b")}


def write(file, content):
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(content, errors="surrogateescape", newline="")
    return file


class Studio:
    """A directory in which the programs run, with "home" as HOME and ./lsof as the load check."""

    def __init__(self, place, build, emulator):
        self.place, self.build, self.emulator = place, build, emulator
        self.plugins, self.support = place / "r/plugins", place / "r/support"
        self.told, self.keep = deque(maxlen=3), False  # for the report of a red test
        (place / "home").mkdir()
        self.lsof()

    def package(self, name, files, product="Marbrel"):
        """Makes a package of some files; gives its directory."""
        for path, content in files.items():
            write(self.place / name / "payload" / path, content)
        write(self.place / name / "CONTENTS.sha256", lines(files))
        return write(self.place / name / "PRODUCT.txt", f"{product}\n").parent

    def lsof(self, calls={}):
        """Makes the replacement of lsof. It answers "not loaded", except at the moments in `calls`,
        where it runs the shell code. A moment is a name in MOMENTS or a pattern as there."""
        cases = "\n".join(f"{MOMENTS.get(name, name)}) {code} ;;" for name, code in calls.items())
        write(self.place / "lsof", '#!/bin/sh\necho "$*" >>calls\n'
              f'case $2:$(grep -cxFe "$*" calls) in\n{cases}\nesac\nexit 1\n').chmod(0o755)
        write(self.place / "calls", "").chmod(0o666)

    def run(self, *command, environment={}, **more):
        """Runs a command, for a minute at most."""
        ended = subprocess.run(command, **{
            "cwd": self.place, "stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
            "stderr": subprocess.PIPE, "text": True, "errors": "surrogateescape", "timeout": 60,
            "env": ENVIRONMENT | {"HOME": f"{self.place}/home"} | environment} | more)
        self.told.append(f"{environment or '$'} {shlex.join(map(str, command))}\n{ended.stdout}"
                         f"{ended.stderr}status {ended.returncode}")
        library = (ended.stderr or "").startswith(LIBRARY)
        return Ended(ended.returncode, ended.stdout, f"{LIBRARY}\n" if library else ended.stderr)

    def command(self, program="installer"):
        """The command of a program under test: the released one, except for the path of lsof."""
        return *self.emulator, f"{self.build}/tests/{program}-under-test"

    def tool(self, *arguments, program="installer", **more):
        """Runs one of the programs under test."""
        return self.run(*self.command(program), *arguments, **more)

    def on(self, package, *options, **more):
        """Runs the installer on a package, with "r" as test root."""
        return self.tool("--package", package, "--test-root", "r", *options, **more)

    def done(self, package, *options, **more):
        """Runs the installer, which must succeed. Gives the run directory, which it prints."""
        ended = self.on(package, *options, **more)
        run = self.support / "Backups" / ended.out[:-1].rpartition("/")[2]
        assert ended == (0, f"{REMOVED if options else INSTALLED}{run}\n", "")
        return run

    def faulty(self, **variables):
        """Arguments that give a run faults in its calls: the variables of tests/faults.cpp."""
        return {"environment": {name: str(value) for name, value in variables.items()} |
                {"LD_LIBRARY_PATH": f"{self.build}/tests", "LD_PRELOAD": "libfaults.so"}}

    def ends(self, message):
        """The end of a run that fails with this message; "{}" is our place. None: of a dry run."""
        words = {"HD": HD, "LOW": LOW, "RECEIPT": RECEIPT, "LOADED": LOADED}
        return failed(message.format(self.place, **words)) if message else READY

    def sh(self, code, **more):
        """Runs shell code, which stops at the first command that fails."""
        return self.run("sh", "-eu", "-c", code, **{"timeout": 900} | more)
