#!/usr/bin/python3
"""An Ansible module: removes old runs, and packages that are neither installed nor wanted."""

import os
import re
import time

from ansible.module_utils.orvelline import Wrong, advice, located, look, serve

DOCUMENTATION = r"""
module: orvelline_cleanup
short_description: Removes old runs and packages of Orvelline's plug-ins
description:
  - Removes old run directories, but not the newest that can be undone, and copies of packages that
    are neither installed nor wanted. Fails if something is interrupted or damaged.
  - Returns the paths as C(removed) and the size of the files in them as C(bytes).
options:
  digest: {type: str, description: "Digest of the wanted package."}
  keep: {type: int, default: 3, description: "Runs of each format that can be undone and stay."}
  keep_days: {type: int, default: 90, description: "Days after which a run may go."}
  program: {type: path, description: "Path of the installer, else ~/orvelline/bin."}
  test_root: {type: path, description: "Directory that replaces the home directory."}
  timeout: {type: int, default: 600, description: "Seconds for all programs together."}
"""


def oldruns(facts, params):
    """The names of the run directories that may go."""
    kept = set()
    names = set()
    for one in facts["formats"]:
        kept.update([run["name"] for run in one["runs"] if run["holds"]][:params["keep"]])
        names.update(run["name"] for run in one["runs"])
    for name in sorted(names - kept):
        ticks = int(re.fullmatch("[A-Za-z]+-([0-9]+)", name)[1])
        # One C++ library counts nanoseconds, the other microseconds: 18 digits in the year 5138.
        seconds = ticks / (1e9 if ticks >= 10 ** 17 else 1e6)
        if time.time() - seconds >= params["keep_days"] * 86400:
            yield name


def remove(path, check):
    """Removes a file or a directory, never what a link leads to; gives the size of its files."""
    if os.path.islink(path) or not os.path.isdir(path):
        size = os.lstat(path).st_size
        if not check:
            os.unlink(path)
        return size
    if not check:
        os.chmod(path, 0o700)
    size = sum(remove(os.path.join(path, name), check) for name in os.listdir(path))
    if not check:
        os.rmdir(path)
    return size


def act(params, check, result):
    at = located(params)
    facts, _ = look(at)
    for one in facts["formats"]:
        if one["interrupted"] or one["tmp"] or one["receipt"] == "damaged":
            raise Wrong("Nothing was removed", advice(at))
    backups = f"{at.support}/Backups"
    old = [f"{backups}/{name}" for name in oldruns(facts, params) if not os.path.islink(backups)]
    wanted = {params["digest"], *(one["digest"] for one in facts["formats"])}
    if os.path.isdir(at.packages) and not os.path.islink(at.packages):
        old += [f"{at.packages}/{name}" for name in sorted(os.listdir(at.packages))
                if re.fullmatch("[0-9a-f]{64}|unpacked-.*", name) and name not in wanted]
    result.update(removed=[], bytes=0)
    for path in old:
        result["bytes"] += remove(path, check)
        result["removed"].append(path)
        result["changed"] = True
    result["lines"] = [f"{len(old)} removed, {result['bytes']} bytes"] * bool(old)
    result["outcome"] = "changed" if old else "as wanted"


if __name__ == "__main__":
    serve(act, digest={}, keep={"type": "int", "default": 3},
          keep_days={"type": "int", "default": 90})
