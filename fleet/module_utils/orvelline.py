"""What the modules share: running a program, reading an archive, asking for the facts."""

import contextlib
import hashlib
import json
import os
import signal
import subprocess
import tarfile
import tempfile
import time
import zlib
from types import SimpleNamespace

from ansible.module_utils.basic import AnsibleModule

LSOF = "/usr/sbin/lsof"
LOADED = "Plugin is loaded or load check unavailable; save/close hosts first"
RUNNING = "An installation is running"
GRACE = 10  # seconds for a program to roll back after its time limit
# What to do next, by the beginning of a program's line.
NEXT = {
    LOADED: "close all music programs, then try again",
    "Unknown or modified plugin preserved": "move it away by hand, then try again",
    "Unknown option": "install the newer tool with tool.yml",
    "Unexpected bundle identity": "install the newer tool with tool.yml",
}


class Wrong(Exception):
    """Why a module fails: the line of a program or our own, and what else is to be told."""

    def __init__(self, line, more=""):
        advice = [text for start, text in NEXT.items() if line.startswith(start)]
        super().__init__("; ".join(filter(None, [line, more, *advice])))
        self.retry = line in (LOADED, RUNNING)


def serve(act, **options):
    """Runs a module: `act` fills in the result, or raises why it fails."""
    module = AnsibleModule(supports_check_mode=True, argument_spec={
        "program": {"type": "path"}, "test_root": {"type": "path"},
        "timeout": {"type": "int", "default": 600}, **options})
    result = {"changed": False}
    try:
        act(module.params, module.check_mode, result)
    except (Wrong, OSError) as wrong:
        line = str(wrong)
        if isinstance(wrong, OSError) and wrong.strerror:
            line = ": ".join(filter(None, [wrong.strerror, wrong.filename]))
        line = line.encode(errors="replace").decode()
        module.fail_json(**{**result, "msg": line, "retry": getattr(wrong, "retry", False)})
    module.exit_json(**result)


def located(params):
    """Where things are on the machine. Fails if nothing may be done there now."""
    root = params["test_root"] or os.path.expanduser("~")
    installer = params["program"] or f"{root}/orvelline/bin/orvelline-installer"
    repair = f"{os.path.dirname(installer)}/orvelline-repair"
    test, library = bool(params["test_root"]), f"{root}/Library"
    if os.getuid() == 0 and not test:
        raise Wrong("Root is refused; log in as the user who owns the plug-ins, without become")
    for path in installer, repair:
        if not os.path.exists(path):
            raise Wrong(f"{path} is missing; install it with tool.yml")
    at = SimpleNamespace(
        options=["--test-root", root] if test else [],
        plugins=f"{root}/plugins" if test else f"{library}/Audio/Plug-Ins",
        support=f"{root}/support" if test else f"{library}/Application Support/Orvelline",
        packages=f"{root}/orvelline-packages", installer=installer, repair=repair,
        timeout=params["timeout"], deadline=time.monotonic() + params["timeout"])
    # By its path, because an upgrade of the tool may have replaced the file of a running program.
    asked = run(at, [LSOF, "-w", "-a", "-u", str(os.geteuid()), "-d", "txt", "-F", "n"])
    names = [line.replace(" (deleted)", "") for line in asked.out.splitlines() if line[0] == "n"]
    if not names:  # not even this process
        raise Wrong(f"{LSOF} does not tell whether an installation is running")
    if f"n{os.path.realpath(installer)}" in names:
        raise Wrong(RUNNING)
    return at


def run(at, argv):
    """Runs a program; gives its exit status, its output and the last line that it printed."""
    name = os.path.basename(argv[0])
    # Files, because a child that lives on would keep a pipe open.
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        try:
            program = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                                       start_new_session=True)
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
        texts = []
        for file in out, err:
            file.seek(0)
            texts.append(file.read().decode(errors="replace"))
    lines = [line for line in "\n".join(texts).splitlines() if line.strip()]
    return SimpleNamespace(status=program.returncode, out=texts[0],
                           line=[f"{name} ended with status {program.returncode}", *lines][-1])


def look(at):
    """The facts of all products and formats, and whether something is to be done."""
    ended = run(at, [at.repair, *at.options, "--json"])
    if ended.status not in (0, 1):
        raise Wrong(ended.line)
    return json.loads(ended.out), ended.status == 1


def advice(at):
    """What orvelline-repair tells people to do: its last line."""
    return run(at, [at.repair, *at.options]).line


def opened(path):
    """An archive and its entries by name. Fails if it is damaged or an entry would leave it."""
    try:
        archive = tarfile.open(path, "r:gz")
        entries = {}
        for entry in archive:
            if (entry.name.startswith("/") or ".." in entry.name.split("/")
                    or not (entry.isreg() or entry.isdir())):
                raise Wrong(f"{path} is refused; only files and directories of its own may be in "
                            f"it: {entry.name}")
            entry.mode = 0o755 if entry.isdir() or entry.mode & 0o100 else 0o644
            entries[os.path.normpath(entry.name)] = entry
        while archive.fileobj.read(1 << 20):  # up to the checksum at its end
            pass
        return archive, entries
    except (OSError, EOFError, ValueError, zlib.error, tarfile.TarError) as error:
        raise Wrong(f"{path} is no whole archive: {getattr(error, 'strerror', None) or error}")


def packageof(path):
    """What a package's archive holds: product, format, bundles, and the digest of its receipt."""
    archive, entries = opened(path)
    try:
        contents, product = (archive.extractfile(entries[name]).read()
                             for name in ("CONTENTS.sha256", "PRODUCT.txt"))
        lines = sorted(contents.rstrip(b"\n").split(b"\n"), key=lambda line: line[66:])
        keys = [os.fsdecode(line[66:]) for line in lines]
        whole = all(entries[f"payload/{key}"].isreg() for key in keys)
    except (KeyError, AttributeError):
        whole = False
    if not whole:
        raise Wrong(f"{path} is no archive of a package; CONTENTS.sha256, PRODUCT.txt and payload "
                    "must be at its top")
    bundles = sorted({"/".join(key.split("/")[:2]) for key in keys})
    return SimpleNamespace(
        archive=archive, entries=entries, product=os.fsdecode(product.split(b"\n")[0]),
        format=bundles[0].split("/")[0], bundles=bundles,
        digest=hashlib.sha256(b"".join(line + b"\n" for line in lines)).hexdigest())
