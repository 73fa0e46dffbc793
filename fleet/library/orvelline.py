#!/usr/bin/python3
"""An Ansible module: brings the plug-ins of one user on one machine to a state."""

import contextlib
import gzip
import hashlib
import os
import re
import shutil
import signal
import stat
import subprocess
import tarfile
import tempfile
import time
import zlib
from pathlib import Path
from types import SimpleNamespace

from ansible.module_utils.basic import AnsibleModule

DOCUMENTATION = r"""
module: orvelline
short_description: Installs, removes and takes back Orvelline's plug-ins
version_added: "1.0.0"
description:
  - Runs C(orvelline-installer) and C(orvelline-repair) for the user who is logged in.
  - Reads what is installed before and after, and reports a change only if the two differ.
  - What an interrupted run has left is taken back first.
  - In check mode it gives the answer of a real run. Where that run would go back, it goes back in a
    copy made of hard links.
options:
  state:
    description:
      - C(present), C(absent) - the package is installed, or none of its bundles is.
      - C(previous) - where the package is installed, what stood before it comes back.
      - C(status) - only tells what is installed.
      - C(clean) - removes old runs, and the packages that are neither installed nor wanted.
      - C(tool) - the programs themselves are those of the archive or the C(.deb).
      - C(checked) - reads the plays' variables and the package, on the controlling machine.
    type: str
    choices: [present, absent, previous, status, clean, tool, checked]
    default: present
  package:
    description:
      - Path of the package's archive on the machine, and with I(state=tool) of the tool's.
      - With I(state=status) and I(state=clean), the wanted package; if I(digest) is given, only the
        last component of the path counts.
    type: path
  digest:
    description: With I(state=status) and I(state=clean), the C(digest) of the wanted package.
    type: str
  program:
    description:
      - Path of C(orvelline-installer) on the machine, with C(orvelline-repair) beside it.
      - C(orvelline/bin/orvelline-installer) in the home directory if not given.
    type: path
  test_root:
    description: Directory that stands for the home directory.
    type: path
  timeout:
    description: Seconds that all programs together may take. They are ended then.
    type: int
    default: 600
  keep:
    description: Number of the newest runs of each product and format that I(state=clean) keeps.
    type: int
    default: 3
  keep_days:
    description: Age in days that a run must have reached for I(state=clean) to remove it.
    type: int
    default: 90
  variables:
    description: With I(state=checked), the variables of the plays by their names.
    type: dict
    default: {}
  needed:
    description: With I(state=checked), the variable that the play cannot do without.
    type: str
    choices: [orvelline_package, orvelline_tool]
author: Orvelline
"""

EXAMPLES = r"""
- name: Install a package that has been copied to the machine
  orvelline:
    package: /home/studio/orvelline-packages/Marbrel-VST3.tar.gz
    state: present
"""

RETURN = r"""
msg:
  description: The line of the program, or why the machine is not as wanted.
  type: str
  returned: always
retry:
  description: Whether another try may help, since a plug-in was in use.
  type: bool
  returned: failure
before:
  description: >-
    What was installed - the digest of the manifest that the receipt holds, which of the package's
    bundles stand, and whether something is interrupted.
  type: dict
  returned: with the states present, absent and previous
after:
  description: The same for what is installed now, in check mode for what would be.
  type: dict
  returned: with the states present, absent and previous
lines:
  description: A line for each product and format.
  type: list
  returned: with the state status
removed:
  description: The paths that were removed.
  type: list
  returned: with the state clean
digest:
  description: SHA-256 of the package's manifest, sorted as in a receipt.
  type: str
  returned: with the state checked
"""

BUNDLES = {
    ("Marbrel", "VST3"): ["MarbrelHD.vst3", "MarbrelLowCPU.vst3"],
    ("Marbrel", "Components"): ["MarbrelHDAU.component", "MarbrelLowCPUAU.component"],
    ("Quellotrone", "VST3"): ["Quellotrone.vst3"],
    ("Quellotrone", "Components"): ["QuellotroneAU.component"],
}
STATES = ["present", "absent", "previous"]
NUMBERS = {"tries": 0, "wait": 0, "timeout": 1, "keep": 0, "keep_days": 0}  # the least of each
IN_USE = "Plugin is loaded or load check unavailable; save/close hosts first"
DAMAGED = "damaged"
PROGRAMS = ["orvelline-installer", "orvelline-repair"]
GRACE = 10  # seconds that a program gets to roll back when its time is over


class Wrong(Exception):
    """Why the machine is not as wanted."""

    def __init__(self, line):
        super().__init__(line)
        self.retry = line == IN_USE


def run(at, argv, stdin=None, stdout=None):
    """Runs a program; gives its exit status and the last line of what it said."""
    name = os.path.basename(argv[0])
    # Files, as a child that lives on would keep a pipe open. A group of its own, to end all of it.
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        try:
            program = subprocess.Popen(
                argv, stdin=stdin or subprocess.DEVNULL, stdout=stdout or out, stderr=err,
                start_new_session=True)
        except FileNotFoundError:
            raise Wrong(f"No program at {argv[0]}")
        except OSError as error:
            raise Wrong(f"{argv[0]} cannot be run: {error.strerror}")
        try:
            program.wait(max(0, at.deadline - time.monotonic()))
        except subprocess.TimeoutExpired:
            # An installer that waits for lsof rolls back once lsof has ended.
            for number in signal.SIGTERM, signal.SIGKILL:
                with contextlib.suppress(ProcessLookupError, PermissionError):
                    os.killpg(program.pid, number)
                with contextlib.suppress(subprocess.TimeoutExpired):
                    program.wait(min(at.timeout, GRACE))
            raise Wrong(f"{name} did not end within {at.timeout} seconds, and was ended")
        said = []
        for file in [out, err] if program.returncode == 0 else [err, out]:
            file.seek(0)
            text = file.read().decode(errors="replace")
            said += [line for line in reversed(text.splitlines()) if line.strip()][:1]
        return program.returncode, (said + [f"{name} ended with status {program.returncode}"])[0]


def located(params):
    """Where things stand on the machine."""
    root = params["test_root"] or os.path.expanduser("~")
    program = params["program"] or f"{root}/orvelline/bin/{PROGRAMS[0]}"
    for path in root, program:
        if not os.path.isabs(path):
            raise Wrong(f"Not an absolute path: {path}")
    if params["state"] not in ("tool", "checked") and not os.path.exists(program):
        raise Wrong(f"No program at {program}; tool.yml brings it")
    test, library = bool(params["test_root"]), f"{root}/Library"
    return SimpleNamespace(
        options=["--test-root", root] if test else [],
        plugins=f"{root}/plugins" if test else f"{library}/Audio/Plug-Ins",
        support=f"{root}/support" if test else f"{library}/Application Support/Orvelline",
        packages=f"{root}/orvelline-packages",
        installer=program, repair=f"{os.path.dirname(program)}/{PROGRAMS[1]}",
        timeout=params["timeout"], deadline=time.monotonic() + params["timeout"])


def remove(path):
    """Removes whatever stands there; neither enters nor changes what a link leads to."""
    if os.path.islink(path) or not os.path.isdir(path):
        os.unlink(path)
        return
    os.chmod(path, 0o700)
    for name in os.listdir(path):
        remove(os.path.join(path, name))
    os.rmdir(path)


@contextlib.contextmanager
def scratch(at):
    """A new directory; beside the packages, since the installer refuses a link such as /tmp."""
    made = not os.path.isdir(at.packages)
    os.makedirs(at.packages, exist_ok=True)
    place = tempfile.mkdtemp(prefix="unpacked-", dir=os.path.realpath(at.packages))
    try:
        yield place
    finally:
        with contextlib.suppress(OSError):
            remove(place)
            if made:
                os.rmdir(at.packages)


# Archives

def opened(path):
    """An archive and its entries by their names. It is whole, and nothing in it leads out of it."""
    try:
        with gzip.open(path) as stream:
            while stream.read(1 << 20):  # up to the checksum at its end
                pass
        archive = tarfile.open(path, "r:gz")
        entries = {}
        for entry in archive:
            if (entry.name.startswith("/") or ".." in entry.name.split("/")
                    or not (entry.isreg() or entry.isdir())):
                raise Wrong(f"{path} is refused, it holds something else than files and "
                            f"directories of its own: {entry.name}")
            # Nothing of who made it: it belongs to who unpacks it.
            entry.uid, entry.gid, entry.uname, entry.gname = os.geteuid(), os.getegid(), "", ""
            entry.mode = 0o755 if entry.isdir() or entry.mode & 0o100 else 0o644
            entries[os.path.normpath(entry.name)] = entry
        return archive, entries
    except (OSError, EOFError, ValueError, zlib.error, tarfile.TarError) as error:
        raise Wrong(f"{path} is no whole archive: {getattr(error, 'strerror', None) or error}")


def extract(archive, entries, place):
    more = {"filter": "data"} if hasattr(tarfile, "data_filter") else {}
    archive.extractall(place, entries.values(), **more)


def manifest(data):
    """The digests in a manifest by their paths; a ValueError if it is none."""
    found = {}
    for line in re.sub(rb"\n\Z", b"", data).split(b"\n"):
        parts = re.fullmatch(rb"([0-9a-f]{64})  ([^/].*)", line, re.S)
        path = os.fsdecode(parts[2]) if parts else ""
        if not parts or path in found or {".", ".."} & set(path.split("/")):
            raise ValueError(line)
        found[path] = parts[1].decode()
    return found


def keys(found):
    """The bundles of a manifest, such as VST3/MarbrelHD.vst3."""
    return {"/".join(path.split("/")[:2]) for path in found}


def digestof(found):
    lines = sorted((os.fsencode(path), digest) for path, digest in found.items())
    return hashlib.sha256(b"".join(b"%s  %s\n" % (digest.encode(), path)
                                   for path, digest in lines)).hexdigest()


def packageof(path, archive, entries):
    """What a package's archive says of itself."""
    try:
        text = {name: archive.extractfile(entries[name]).read()
                for name in ("CONTENTS.sha256", "PRODUCT.txt")}
        found = manifest(text["CONTENTS.sha256"])
        product = text["PRODUCT.txt"].split(b"\n")[0].decode()
        form = next(iter(found)).split("/")[0]
        bundles = sorted(keys(found))
        complete = (set(bundles) <= {f"{form}/{name}" for name in BUNDLES[product, form]} and
                    all(entries[f"payload/{path}"].isreg() for path in found))
    except (KeyError, ValueError, AttributeError):
        complete = False
    if not complete:
        raise Wrong(f"{path} is no whole archive of a package, with CONTENTS.sha256, PRODUCT.txt "
                    "and payload at its top")
    return SimpleNamespace(manifest=found, product=product, format=form, bundles=bundles,
                           digest=digestof(found))


# What stands on the machine

def wantedof(params):
    """The digest of the wanted package: as it is given, or as the package's archive says."""
    path = params["package"] or ""
    if params["digest"] or not os.path.isfile(path):
        return params["digest"]
    return packageof(path, *opened(path)).digest


def receiptpath(at, product, form):
    return f"{at.support}/{product}-{form}.sha256"


def receipt(at, product, form):
    """The manifest in a receipt, None where there is none, DAMAGED if the installer refuses it."""
    path = receiptpath(at, product, form)
    if not os.path.lexists(path):
        return None
    try:
        return manifest(Path(path).read_bytes())
    except (OSError, ValueError):
        return DAMAGED


def tree(bundle):
    """The digests of a bundle's files by their paths in it; None if it is no bundle."""
    found = {}
    for above, directories, files in os.walk(bundle):
        for path in (os.path.join(above, name) for name in directories + files):
            mode = os.lstat(path).st_mode
            if stat.S_ISLNK(mode):
                return None
            if stat.S_ISREG(mode):
                digest = hashlib.sha256()
                with open(path, "rb") as file:
                    for block in iter(lambda: file.read(1 << 16), b""):
                        digest.update(block)
                found[os.path.relpath(path, bundle)] = digest.hexdigest()
    return None if os.path.islink(bundle) else found or None


def stands(at, found, key):
    """Whether a bundle is in place as a manifest says."""
    part = {path[len(key) + 1:]: digest for path, digest in found.items()
            if path.startswith(f"{key}/")}
    return tree(f"{at.plugins}/{key}") == part


def whole(at, found):
    """Whether every bundle of a manifest is in place as it says."""
    return all(stands(at, found, key) for key in keys(found))


def repair(at, *options):
    """What orvelline-repair says: whether something is interrupted, and its line."""
    code, line = run(at, [at.repair, *at.options, *options])
    if code not in (0, 1):
        raise Wrong(line)
    return code == 1, line


def chosen(package):
    return ["--product", package.product, "--format", package.format]


def seen(at, package):
    found = receipt(at, package.product, package.format)
    return {"package": digestof(found) if isinstance(found, dict) else found,
            "bundles": [key for key in package.bundles if os.path.lexists(f"{at.plugins}/{key}")],
            "interrupted": repair(at, *chosen(package))[0]}


# Going back

def back(at, package):
    """Goes back once; gives whether anything in place has moved."""
    def places():
        path = receiptpath(at, package.product, package.format)
        bundles = [f"{at.plugins}/{package.format}/{name}"
                   for name in BUNDLES[package.product, package.format]]
        return [os.path.lexists(one) and os.lstat(one).st_ino
                for one in [path, f"{path}.tmp", *bundles]]
    before = places()
    interrupted, line = repair(at, *chosen(package), "--back")
    if interrupted and places() == before:
        raise Wrong(line)
    return places() != before


def takeback(at, package):
    """Takes back what was interrupted. Where a receipt is damaged, nothing tells what that is."""
    while (receipt(at, package.product, package.format) != DAMAGED
           and repair(at, *chosen(package))[0]):
        back(at, package)


def goback(at, package, came):
    """Goes back to what stood before a package; adds to `came` for each run gone back over."""
    takeback(at, package)
    while receipt(at, package.product, package.format) == package.manifest:
        if not back(at, package):
            raise Wrong("No run is left to go back to")
        came.append(1)
        takeback(at, package)
    now = receipt(at, package.product, package.format)
    if now == DAMAGED:
        raise Wrong(f"Damaged receipt: {receiptpath(at, package.product, package.format)}")
    if came and (not whole(at, now) if now else
                 any(stands(at, package.manifest, key) for key in package.bundles)):
        raise Wrong("The runs that are left lead to a part of a version only")


@contextlib.contextmanager
def rehearsal(at, package):
    """The same product and format at another place, made of links to the same files. The programs
    only rename directories and write new files, so that they can be tried on it."""
    def link(source, target):
        try:
            os.link(source, target)
        except OSError:
            shutil.copy2(source, target)

    with scratch(at) as place:
        there = SimpleNamespace(**{
            **vars(at), "options": ["--test-root", place],
            "plugins": f"{place}/plugins", "support": f"{place}/support"})
        path = receiptpath(at, package.product, package.format)
        for source in [path, f"{path}.tmp", *(one for _, _, one in runs(at, package.product)),
                       *(f"{at.plugins}/{package.format}/{name}"
                         for name in BUNDLES[package.product, package.format])]:
            target = source.replace(at.plugins, there.plugins, 1).replace(
                at.support, there.support, 1)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            if os.path.isdir(source) and not os.path.islink(source):
                shutil.copytree(source, target, symlinks=True, copy_function=link)
            elif os.path.isfile(source):
                link(source, target)
        try:
            yield there
        except Wrong as wrong:
            line = str(wrong).replace(there.plugins, at.plugins).replace(there.support, at.support)
            raise Wrong(line)


# The states

def bring(at, package, place, state, check, result):
    """Installs or removes the package that is unpacked at a place."""
    present = state == "present"
    wanted = {"package": package.digest if present else None,
              "bundles": package.bundles if present else [], "interrupted": False}
    undo = result["before"]["interrupted"]
    with rehearsal(at, package) if check and undo else contextlib.nullcontext(at) as there:
        if undo:
            takeback(there, package)
        due = wanted != (seen(there, package) if undo else result["before"])
        # A machine where nothing is missing is proved by a dry run, which leaves no backup.
        code, result["msg"] = run(at, [
            at.installer, "--package", place, *there.options, *([] if present else ["--remove"]),
            *(["--dry-run"] if check or not due else [])])
        if code != 0:
            raise Wrong(result["msg"])
    result["after"] = wanted if check else seen(at, package)
    if result["after"] != wanted:
        raise Wrong(f"Not as wanted, though the program said: {result['msg']}")


def previous(at, package, check, result):
    before, came = result["before"], []
    result["msg"] = "Left alone, as it has another package or none"
    if before["package"] not in (package.digest, DAMAGED) and not before["interrupted"]:
        return
    try:
        if not check:
            takeback(at, package)
        # Known to get there before anything moves: half a way would mix versions.
        with rehearsal(at, package) as there:
            goback(there, package, [])
            result["msg"] = repair(there, *chosen(package))[1]
            result["after"] = seen(there, package)
        if not check:
            goback(at, package, came)
            result["after"] = seen(at, package)
    except Wrong as wrong:
        if wrong.retry and not came:
            raise
        raise Wrong(f"{wrong}; runs gone back over: {len(came)}")


def install(at, params, check, result):
    path = params["package"]
    archive, entries = opened(path)
    package = packageof(path, archive, entries)
    result["before"] = seen(at, package)
    try:
        if params["state"] == "previous":
            previous(at, package, check, result)
        else:
            with scratch(at) as place:
                extract(archive, entries, place)
                bring(at, package, place, params["state"], check, result)
    except (Wrong, OSError):
        at.deadline = max(at.deadline, time.monotonic() + GRACE)
        with contextlib.suppress(Wrong):
            result["after"] = result["before"] if check else seen(at, package)
        raise
    finally:
        result["changed"] = result.get("after", result["before"]) != result["before"]


def status(at, params, _check, result):
    result["lines"] = []
    wanted = wantedof(params)
    for product, form in BUNDLES:
        found = receipt(at, product, form)
        some = any(os.path.lexists(f"{at.plugins}/{form}/{name}")
                   for name in BUNDLES[product, form])
        digest = digestof(found) if isinstance(found, dict) else ""
        name = f"{digest[:12]} ({os.path.basename(params['package'] or '')})"
        interrupted = repair(at, "--product", product, "--format", form)[0]
        text = ("changed since, its receipt is damaged" if found == DAMAGED else
                "interrupted" if interrupted else
                "changed since" if some and not found else
                "nothing" if not found else
                f"changed since {digest[:12]}" if not whole(at, found) else
                name if digest == wanted else digest[:12])
        result["lines"].append(f"{product} {form}: {text}")


def runs(at, product):
    """The runs of a product: ticks, format, path. Nothing that only looks like one, and no link."""
    backups = f"{at.support}/Backups"
    if os.path.islink(backups):
        raise Wrong(f"Symlink path refused: {backups}")
    found = []
    for name in os.listdir(backups) if os.path.isdir(backups) else []:
        path = f"{backups}/{name}"
        ticks = re.fullmatch(f"{product}-([0-9]+)", name)
        if ticks and not os.path.islink(path) and os.path.isdir(path):
            found.append((int(ticks[1]), formatof(path), path))
    return found


def formatof(path):
    """The format is not in a run's name. A removal that found no bundle has only a receipt."""
    areas = {form for area in os.listdir(path) for _, form in BUNDLES
             if os.path.isdir(f"{path}/{area}/{form}")}
    for name in "removed-receipt.sha256", "previous-receipt.sha256":
        with contextlib.suppress(OSError, ValueError):
            areas |= {file.split("/")[0] for file in manifest(Path(path, name).read_bytes())}
    return next((form for _, form in BUNDLES if form in areas), "")


def clean(at, params, check, result):
    interrupted, line = repair(at)
    if interrupted:
        raise Wrong(f"Nothing was removed: {line}")
    old = []
    for product in {product for product, _ in BUNDLES}:
        found = sorted(runs(at, product), reverse=True)
        for form in {form for _, form, _ in found}:
            for ticks, _, path in [one for one in found if one[1] == form][params["keep"]:]:
                # The name tells the age: a directory's date is new after going back, or a copy.
                # The clock of one library counts nanoseconds, that of the other microseconds,
                # which reach 18 digits in the year 5138 only.
                seconds = ticks / (1e9 if ticks >= 10 ** 17 else 1e6)
                if time.time() - seconds >= params["keep_days"] * 86400:
                    old.append(path)
    receipts = [receipt(at, *one) for one in BUNDLES]
    wanted = {digestof(one) for one in receipts if isinstance(one, dict)} | {wantedof(params)}
    if os.path.isdir(at.packages) and not os.path.islink(at.packages):
        old += [f"{at.packages}/{name}" for name in os.listdir(at.packages)
                if re.fullmatch("[0-9a-f]{64}|unpacked-.*|tool", name) and name not in wanted]
    for path in [] if check else old:
        remove(path)
    result["removed"] = sorted(path for path in old if check or not os.path.lexists(path))
    result["changed"] = bool(result["removed"])
    result["msg"] = f"{len(result['removed'])} removed"


# The programs themselves

def digests(paths):
    """The digest of each program, None where there is none."""
    return [hashlib.sha256(Path(path).read_bytes()).hexdigest() if os.path.isfile(path)
            else None for path in paths]


def attempt(at, paths):
    """Runs both programs with a call that they refuse before they look at anything."""
    for path, options, answer in zip(paths, [["--package", ""], ["--back"]], [
            "Package directory required", "Product and format required"]):
        code, line = run(at, [path, *options])
        if (code, line) != (3, answer):
            raise Wrong(f"{path} is not the program that it should be: {line}")


def toolof(path, entries):
    """The directory with the programs in an archive."""
    found = [name[:-len(f"/bin/{PROGRAMS[0]}")] for name in entries
             if re.fullmatch(f"[^/]+/bin/{PROGRAMS[0]}", name)]
    if len(found) != 1 or f"{found[0]}/bin/{PROGRAMS[1]}" not in entries:
        raise Wrong(f"{path} is no Debian package, and no whole archive with the tool")
    return found[0]


def isdeb(path):
    with contextlib.suppress(OSError), open(path, "rb") as file:
        return file.read(21) == b"!<arch>\ndebian-binary"
    return False


def debian(at, path, place):
    """Gives the programs as they are in a Debian package, and where it puts them."""
    data = f"{place}/data.tar"
    with open(data, "wb") as file:
        code, line = run(at, ["dpkg-deb", "--fsys-tarfile", path], stdout=file)
    if code != 0:
        raise Wrong(line)
    new = [f"{place}/{name}" for name in PROGRAMS]
    with tarfile.open(data, "r:") as archive:
        for name, target in zip(PROGRAMS, new):
            if f"./usr/bin/{name}" not in archive.getnames():
                raise Wrong(f"{path} is no Debian package with the tool")
            with open(target, "wb") as file:
                shutil.copyfileobj(archive.extractfile(f"./usr/bin/{name}"), file)
    return new, [f"/usr/bin/{name}" for name in PROGRAMS]


def tool(at, params, check, result):
    path = params["package"]
    with scratch(at) as place:
        deb = isdeb(path)
        if deb:
            new, old = debian(at, path, place)
        else:
            archive, entries = opened(path)
            top = toolof(path, entries)
            extract(archive, entries, place)
            new, old = [f"{place}/{top}/bin/{name}" for name in PROGRAMS], [at.installer, at.repair]
            if os.path.basename(os.path.dirname(at.installer)) != "bin":
                raise Wrong(f"Not in a directory bin: {at.installer}")
            try:
                attempt(at, new)
            except Wrong as wrong:
                raise Wrong(f"{path}: {str(wrong).replace(f'{place}/', '')}")
        before, wanted = digests(old), digests(new)
        if before != wanted and deb:
            if os.geteuid() != 0:
                raise Wrong("A Debian package is installed by root: add --become")
            code, line = run(at, [
                "apt-get", "-q", "-y", "--reinstall", "--allow-downgrades", "install", path,
                *(["--simulate"] if check else [])])
            if code != 0:
                raise Wrong(line)
        elif before != wanted and not check:
            top = f"{place}/{top}"
            for above, _, files in os.walk(top):
                for name in files:
                    source = os.path.join(above, name)
                    target = os.path.join(os.path.dirname(os.path.dirname(at.installer)),
                                          os.path.relpath(source, top))
                    os.makedirs(os.path.dirname(target), exist_ok=True)
                    # A program that runs just now keeps its file.
                    shutil.copy2(source, f"{target}.new")
                    os.replace(f"{target}.new", target)
        after = wanted if check else digests(old)
        result["changed"] = after != before
        if after != wanted:
            raise Wrong(f"Not the programs of {path}: {old[0]}")
        if not check:
            attempt(at, old)
        result["msg"] = f"{os.path.dirname(old[0])} has the programs of {os.path.basename(path)}"


# On the controlling machine

def signed(at, path, signers):
    signature = f"{path}.sig"
    if not os.path.isfile(signature):
        raise Wrong(f"{path} has no signature at {signature}")
    if not os.path.isfile(signers):
        raise Wrong(f"orvelline_signers is no file: {signers}")
    names = ["-f", signers, "-s", signature]
    code, line = run(at, ["ssh-keygen", "-Y", "find-principals", *names])
    if code == 0:
        with open(path, "rb") as file:
            code, line = run(at, ["ssh-keygen", "-Y", "verify", *names, "-I", line,
                                  "-n", "orvelline-package"], stdin=file)
    if code != 0:
        raise Wrong(f"{path} has no valid signature of {signers}: {line}")


def checked(at, params, _check, result):
    given = params["variables"]
    for name, least in NUMBERS.items():
        value = str(given.get(f"orvelline_{name}", least))
        if not re.fullmatch("[0-9]+", value) or int(value) < least:
            raise Wrong(f"orvelline_{name} is no whole number{' above 0' * least}: {value}")
    for name in "orvelline_program", "orvelline_test_root":
        if not re.match("[/~$]", str(given.get(name, "/"))):
            raise Wrong(f"{name} is no absolute path: {given[name]}")
    state = given.get("orvelline_state", "present")
    if state not in STATES:
        raise Wrong(f"There is no state {state}: it is present, absent or previous")
    needed = params["needed"]
    path = str(given.get(needed or "orvelline_package", ""))
    if (needed or path) and not os.path.isabs(path):
        what = "tool's package or" if needed == "orvelline_tool" else "package's"
        raise Wrong(f"Give the absolute path of the {what} archive, "
                    f"with -e {needed or 'orvelline_package'}=/...")
    if needed == "orvelline_tool":
        if not isdeb(path):
            toolof(path, opened(path)[1])
    elif path:
        package = packageof(path, *opened(path))
        if given.get("orvelline_signers"):
            signed(at, path, given["orvelline_signers"])
        result["digest"] = package.digest


def main():
    number = {"type": "int"}
    module = AnsibleModule(
        argument_spec={
            "state": {"choices": [*STATES, "status", "clean", "tool", "checked"],
                      "default": "present"},
            "package": {"type": "path"}, "digest": {}, "program": {"type": "path"},
            "test_root": {"type": "path"}, "timeout": {**number, "default": 600},
            "keep": {**number, "default": 3}, "keep_days": {**number, "default": 90},
            "variables": {"type": "dict", "default": {}},
            "needed": {"choices": ["orvelline_package", "orvelline_tool"]}},
        required_if=[("state", state, ["package"]) for state in [*STATES, "tool"]],
        supports_check_mode=True)
    acts = {"status": status, "clean": clean, "tool": tool, "checked": checked}
    result = {"changed": False}
    try:
        act = acts.get(module.params["state"], install)
        act(located(module.params), module.params, module.check_mode, result)
    except (Wrong, OSError) as wrong:
        line = str(wrong)
        if isinstance(wrong, OSError) and wrong.strerror:
            line = ": ".join(filter(None, [wrong.strerror, wrong.filename]))
        line = line.encode(errors="replace").decode()
        module.fail_json(**{**result, "msg": line, "retry": getattr(wrong, "retry", False)})
    module.exit_json(**result)


if __name__ == "__main__":
    main()
