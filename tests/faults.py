"""Runs the program under strace, which lets one system call fail or ends the program at it."""

import hashlib
import re
import shutil
import stat
import subprocess
from collections import Counter
from pathlib import Path

from scripts import UNDER_TEST

KEYS = "VST3/MarbrelHD.vst3", "VST3/MarbrelLowCPU.vst3"
RECEIPT = "support/Marbrel-VST3.sha256"


def prepare(place):
    """Makes two packages, and "start", where "old" is installed: the start of every run."""
    for version in "old", "new":
        lines = ""
        for key in KEYS:
            file = Path(place, version, "payload", key, "MacOS/plugin")
            file.parent.mkdir(parents=True)
            file.write_text(f"{key} {version}")
            lines += f"{hashlib.sha256(file.read_bytes()).hexdigest()}  {key}/MacOS/plugin\n"
        Path(place, version, "CONTENTS.sha256").write_text(lines)
        Path(place, version, "PRODUCT.txt").write_text("Marbrel\n")
    lsof = Path(place, "lsof")
    lsof.write_text("#!/bin/sh\nexit 1\n")
    lsof.chmod(0o755)
    subprocess.run([UNDER_TEST, "--package", "old", "--test-root", "start"], cwd=place, check=True,
                   stdout=subprocess.DEVNULL)


def fresh(place, name, start="start"):
    """A copy of the start; gives its path."""
    return Path(shutil.copytree(f"{place}/{start}", f"{place}/{name}"))


def traced(root, *options, package="new", remove=False):
    """Runs the program, and not its children, under strace; gives the process and its calls."""
    log = f"{root}.trace"
    command = ["strace", "-a1", "-o", log, *options, UNDER_TEST, "--package", package,
               "--test-root", root] + ["--remove"] * remove
    ended = subprocess.run(command, cwd=root.parent, capture_output=True, text=True)
    return ended, Path(log).read_text().splitlines()


def calls(lines):
    """Each call of a trace: its name, its number among the calls of this name, and its line."""
    seen = Counter()
    for line in lines:
        if name := re.match(r"(\w+)\(", line):
            seen[name[1]] += 1
            yield name[1], seen[name[1]], line


def disk(root):
    """Every entry below a directory: its inode, its permissions, and the content of a file."""
    return {str(path.relative_to(root)):
            ((status := path.lstat()).st_ino, stat.filemode(status.st_mode),
             path.read_bytes() if path.is_file() else None) for path in root.rglob("*")}


def part(entries, top):
    """What stands at and below a path, without the inodes; the paths are relative to it."""
    return {path[len(top):]: entry[1:] for path, entry in entries.items()
            if path == top or path.startswith(top + "/")}


def same(one, other, *tops):
    """Whether the same things stand at and below every one of these paths."""
    return all(part(one, top) == part(other, top) for top in tops)
