#!/usr/bin/python3
"""An Ansible module: installs, removes or undoes one package for the user who is logged in."""

import contextlib
import os
import tarfile
import tempfile
import time

from ansible.module_utils.orvelline import (
    GRACE, Wrong, advice, located, look, packageof, run, serve)

DOCUMENTATION = r"""
module: orvelline
short_description: Installs, removes and undoes Orvelline's plug-ins
description:
  - C(present) installs the package, C(absent) removes its bundles. C(previous) undoes runs while
    the installed version is the package's. An interrupted run is undone first.
  - Reports a change only if the facts of C(orvelline-repair --json) differ, as C(before) and
    C(after). C(outcome) is C(changed), C(as wanted) or C(left alone).
  - On failure, C(retry) tells whether a plug-in was in use or an installation was running.
options:
  state:
    {type: str, choices: [present, absent, previous], default: present, description: "See above."}
  package: {type: path, required: true, description: "Path of the archive on the machine."}
  program: {type: path, description: "Path of the installer, else ~/orvelline/bin."}
  test_root: {type: path, description: "Directory that replaces the home directory."}
  timeout: {type: int, default: 600, description: "Seconds for all programs together."}
"""


def facts(at, package):
    """The facts of the package's product and format."""
    for one in look(at)[0]["formats"]:
        if (one["product"], one["format"]) == (package.product, package.format):
            return one
    raise Wrong(f"The tool does not know {package.product} {package.format}")


def shown(now, package):
    """What a result says of the facts."""
    kept = {name: now[name] for name in ("receipt", "digest", "interrupted", "tmp")}
    return {**kept, "bundles": {key: now["bundles"].get(key) for key in package.bundles}}


def wanted(package, state):
    """The same where a state is reached."""
    there = state == "present"
    return {"receipt": "whole" if there else "absent", "digest": package.digest if there else "",
            "interrupted": "", "tmp": False,
            "bundles": dict.fromkeys(package.bundles, "installed" if there else "absent")}


def undo(at, name, more=""):
    ended = run(at, [at.repair, *at.options, "--undo", name])
    if ended.status not in (0, 1):
        raise Wrong(ended.line, more)


def settled(at, package, check):
    """Undoes what was interrupted; gives the facts after that, or None if a check would have to."""
    tried = set()
    while True:
        now = facts(at, package)
        # Any run that holds nothing can take a receipt that was left.
        names = [now["interrupted"]] if now["interrupted"] else [
            one["name"] for one in now["runs"] if now["tmp"] and not one["holds"]]
        name = next((name for name in names if name not in tried), None)
        if now["receipt"] == "damaged" or not name:
            break
        if check:
            return None
        undo(at, name, f"{name} was interrupted")
        tried.add(name)
    if now["receipt"] == "damaged" or now["interrupted"] or now["tmp"]:
        raise Wrong(advice(at))
    return now


def refuse(at, bundles, package):
    """Fails if a receipt would lose an installed bundle, or if a directory cannot be changed."""
    left = [key for key, state in bundles.items()
            if state in ("installed", "changed") and key not in package.bundles]
    if left:
        raise Wrong(f"{', '.join(left)} is installed, but not in the package; take a package with "
                    "all installed bundles")
    for path in (f"{at.plugins}/{package.format}", f"{at.support}/Backups", at.support,
                 *(f"{at.plugins}/{key}" for key in package.bundles)):
        while not os.path.lexists(path):
            path = os.path.dirname(path)
        if not os.access(path, os.W_OK | os.X_OK):
            raise Wrong(f"{path} may not be written to")


def extract(package, place):
    safe = {"filter": "data"} if hasattr(tarfile, "data_filter") else {}
    try:
        package.archive.extractall(place, package.entries.values(), **safe)
    except OSError as error:
        raise Wrong(f"{error.strerror}: {error.filename or place}")


def bring(at, package, state, check, result):
    """Installs or removes the package, unless that is done already."""
    now = settled(at, package, check)
    if now and shown(now, package) == wanted(package, state):
        result["msg"] = "As wanted"
        return
    refuse(at, now["bundles"] if now else {}, package)
    os.makedirs(at.packages, exist_ok=True)
    # Beside the archive, because the installer refuses a link such as /tmp.
    with tempfile.TemporaryDirectory(prefix="unpacked-",
                                     dir=os.path.realpath(at.packages)) as place:
        extract(package, place)
        # What is installed is known only after undoing: until then, the package alone is verified.
        options = at.options if now else ["--test-root", f"{place}/none"]
        options += ["--remove"] * (state == "absent") + ["--dry-run"] * check
        ended = run(at, [at.installer, "--package", place, *options])
    if ended.status != 0:
        raise Wrong(ended.line)
    result.update(msg=ended.line, after=wanted(package, state))


def previous(at, package, check, result):
    """Undoes runs while the installed version is the package's."""
    now = settled(at, package, check)
    if not now:
        result.update(msg="Would undo the interrupted run first",
                      after={**result["before"], "interrupted": "", "tmp": False})
    elif now["digest"] != package.digest:
        result.update(msg="It has another version, or none", outcome="left alone")
    while now and now["digest"] == package.digest:
        name, digest = now["undo"], now["before"] or "no receipt"
        if not name:
            name = now["runs"][0]["name"] if now["runs"] else "The newest run"
            raise Wrong(f"{name} has nothing to undo", "use orvelline_state=absent")
        if check:
            result.update(lines=[f"back to {digest}"], after={"digest": digest})
            return
        undo(at, name)
        result["msg"] = f"Undid {name}, back to {digest}"
        now = settled(at, package, check)


def act(params, check, result):
    package = packageof(params["package"])
    at = located(params)
    state = params["state"]
    result["before"] = shown(facts(at, package), package)
    try:
        if state == "previous":
            previous(at, package, check, result)
        else:
            bring(at, package, state, check, result)
    finally:
        if not check:
            at.deadline = max(at.deadline, time.monotonic() + GRACE)
            with contextlib.suppress(Wrong):
                result["after"] = shown(facts(at, package), package)
        result["changed"] = result.get("after", result["before"]) != result["before"]
    result["diff"] = {"before": result["before"], "after": result.get("after", result["before"])}
    result.setdefault("outcome", "changed" if result["changed"] else "as wanted")
    if not check and state != "previous" and result.get("after") != wanted(package, state):
        raise Wrong(f"Not as wanted, though the program said: {result['msg']}")


if __name__ == "__main__":
    serve(act, state={"choices": ["present", "absent", "previous"], "default": "present"},
          package={"type": "path", "required": True})
