"""What all tests share: packages, a stand-in for lsof, runs from outside, and what is on disk."""

import hashlib
import os
import stat
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# Nothing of the caller's: no variable of theirs may decide how a test ends.
ENVIRONMENT = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8"}
READY = (0, "READY: verified package; no files changed\n", "")
INSTALLED, REMOVED = "INSTALLED; rollback backup: ", "REMOVED to backup: "
LOADED = "Plugin is loaded or load check unavailable; save/close hosts first"


def failed(message):
    """What a run that failed with this message gives."""
    return 3, "", f"{message}\n"


def disk(root):
    """Every entry below a directory: the bytes of a file, the text of a link, else its type."""
    kinds = {stat.S_IFDIR: lambda path: "directory", stat.S_IFREG: Path.read_bytes,
             stat.S_IFLNK: lambda path: f"link to {os.readlink(path)}"}
    return {str(path.relative_to(root)):
            kinds.get(stat.S_IFMT(path.lstat().st_mode), lambda path: "special")(path)
            for path in sorted(Path(root).rglob("*"))}


def bits(root):
    """The permission bits of every entry below a directory, and of itself."""
    return {str(path.relative_to(root)): f"{path.lstat().st_mode & 0o7777:o}"
            for path in [Path(root), *Path(root).rglob("*")]}


def lines(files):
    """The CONTENTS.sha256 of some files, given as a relative path and its content each."""
    digests = {path: hashlib.sha256(content.encode()).hexdigest()
               for path, content in files.items()}
    return "".join(f"{digests[path]}  {path}\n" for path in sorted(files, key=os.fsencode))


def write(file, content):
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(content, errors="surrogateescape", newline="")
    return file


class Studio:
    """A directory in which the programs run, with "home" as HOME and ./lsof as the load check."""

    def __init__(self, place, build, emulator):
        self.place, self.build, self.emulator = place, build, emulator
        (place / "home").mkdir()
        self.lsof()

    def package(self, name, files, product="Marbrel"):
        """Makes a package of some files; gives its directory."""
        package = self.place / name
        for path, content in files.items():
            write(package / "payload" / path, content)
        write(package / "CONTENTS.sha256", lines(files))
        write(package / "PRODUCT.txt", f"{product}\n")
        return package

    def lsof(self, calls={}):
        """Makes the stand-in for lsof. Its n-th call runs calls[n], a piece of shell, and then
        answers "not loaded" if the piece has not ended it."""
        cases = "\n".join(f"{number}) {piece} ;;" for number, piece in calls.items())
        count = "$(wc -l <calls | tr -d ' ')"
        write(self.place / "lsof", f'#!/bin/sh\necho "$*" >>calls\ncase {count} in\n{cases}\nesac\n'
              "exit 1\n").chmod(0o755)
        write(self.place / "calls", "")

    def asked(self):
        """The command lines that the stand-in for lsof has got."""
        return (self.place / "calls").read_text(errors="surrogateescape").splitlines()

    def run(self, *command, environment={}, **more):
        """Runs a command; gives its exit status and both its streams."""
        ended = subprocess.run(command, **{
            "cwd": self.place, "stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
            "stderr": subprocess.PIPE, "text": True, "errors": "surrogateescape",
            "env": ENVIRONMENT | {"HOME": f"{self.place}/home"} | environment} | more)
        return ended.returncode, ended.stdout, ended.stderr

    def tool(self, *arguments, program="installer", **more):
        """Runs one of the two programs, which is the shipped one but for the path of lsof."""
        return self.run(*self.emulator, f"{self.build}/tests/{program}-under-test", *arguments,
                        **more)

    def sh(self, code, **more):
        """Runs a piece of shell that stops at the first command that fails."""
        return self.run("sh", "-eu", "-c", code, **more)
