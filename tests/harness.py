"""What all tests share: packages, a stand-in for lsof, runs from outside, and what is on disk."""

import hashlib
import os
import subprocess
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parent.parent
# Nothing of the caller's: no variable of theirs may decide how a test ends.
ENVIRONMENT = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8"}
HD, LOW = "VST3/MarbrelHD.vst3", "VST3/MarbrelLowCPU.vst3"
RECEIPT = "Marbrel-VST3.sha256"
READY = (0, "READY: verified package; no files changed\n", "")
INSTALLED, REMOVED = "INSTALLED; rollback backup: ", "REMOVED to backup: "
LIBRARY = "filesystem error"
LOADED = "Plugin is loaded or load check unavailable; save/close hosts first"


class Ended(NamedTuple):
    """How a command ended; a library's words on standard error are cut to LIBRARY."""

    status: int
    out: str
    err: str


def failed(message):
    """What a run that failed with this message gives."""
    return 3, "", f"{message}\n"


def rows(table):
    """The rows of a table that names for each outcome what leads to it."""
    return [(outcome, cause) for outcome, causes in table.items() for cause in causes]


def disk(root):
    """Every entry below a directory: the bytes of a file, the text of a link, else its type."""
    return {str(path.relative_to(root)): f"link to {os.readlink(path)}" if path.is_symlink() else
            path.read_bytes() if path.is_file() else
            "directory" if path.is_dir() else "special" for path in Path(root).rglob("*")}


def lines(files):
    """The CONTENTS.sha256 of some files, given as a relative path and its content each."""
    return "".join(f"{hashlib.sha256(files[path].encode()).hexdigest()}  {path}\n"
                   for path in sorted(files, key=os.fsencode))


def files(version, *keys):
    """The files of some bundles, of both for VST3 if none is named."""
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
        (place / "home").mkdir()
        self.lsof()

    def package(self, name, files, product="Marbrel"):
        """Makes a package of some files; gives its directory."""
        for path, content in files.items():
            write(self.place / name / "payload" / path, content)
        write(self.place / name / "CONTENTS.sha256", lines(files))
        return write(self.place / name / "PRODUCT.txt", f"{product}\n").parent

    def lsof(self, calls={}):
        """Makes the stand-in for lsof. Its n-th call runs calls[n] in sh, or says "not loaded"."""
        cases = "\n".join(f"{number}) {piece} ;;" for number, piece in calls.items())
        write(self.place / "lsof", '#!/bin/sh\necho "$*" >>calls\ncase $(($(wc -l <calls))) in\n'
              f"{cases}\nesac\nexit 1\n").chmod(0o755)
        write(self.place / "calls", "").chmod(0o666)

    def run(self, *command, environment={}, **more):
        """Runs a command to its end, a minute at most."""
        ended = subprocess.run(command, **{
            "cwd": self.place, "stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
            "stderr": subprocess.PIPE, "text": True, "errors": "surrogateescape", "timeout": 60,
            "env": ENVIRONMENT | {"HOME": f"{self.place}/home"} | environment} | more)
        library = (ended.stderr or "").startswith(LIBRARY)
        return Ended(ended.returncode, ended.stdout, f"{LIBRARY}\n" if library else ended.stderr)

    def command(self, program="installer"):
        """What runs one of the programs under test: the shipped ones but for the path of lsof."""
        return *self.emulator, f"{self.build}/tests/{program}-under-test"

    def tool(self, *arguments, program="installer", **more):
        """Runs one of the programs under test."""
        return self.run(*self.command(program), *arguments, **more)

    def on(self, package, *options, **more):
        """Runs the installer on a package, with "r" as test root."""
        return self.tool("--package", package, "--test-root", "r", *options, **more)

    def done(self, package, *options):
        """Runs the installer to a good end; gives the transaction directory that it names."""
        status, out, err = self.on(package, *options)
        head, _, name = out.partition(f"{self.support}/Backups/")
        assert (status, head, name[-1:], err) == (0, REMOVED if options else INSTALLED, "\n", "")
        return self.support / "Backups" / name[:-1]

    def faulty(self, **variables):
        """What more a run takes to have faults in its calls, as tests/faults.cpp knows them."""
        return {"environment": {name: str(value) for name, value in variables.items()} |
                {"LD_LIBRARY_PATH": f"{self.build}/tests", "LD_PRELOAD": "libfaults.so"}}

    def ends(self, message):
        """The end of a run that fails with this, "{}" being our place; without, of a dry run."""
        return failed(message.format(self.place)) if message else READY

    def sh(self, code, **more):
        """Runs a piece of shell that stops at the first command that fails."""
        return self.run("sh", "-eu", "-c", code, **{"timeout": 900} | more)
