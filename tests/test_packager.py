"""Makes packages with tools/make-package, also those that it must refuse."""

import signal

import pytest
from harness import HD, ROOT

pytestmark = pytest.mark.once
B = f"1/payload/{HD}"
# Shell functions: "sign" takes the code of a false ssh-keygen, "load" the name and code of a module
# that Python finds first.
PREPARED = f"""cp '{ROOT}/tools/make-package' .
plain() {{ exec ./make-package Marbrel VST3 {B} out; }}
sign() {{
    echo "#!/bin/sh\\n$1" | install -m 755 /dev/stdin ssh-keygen
    PATH=$PWD:$PATH exec ./make-package --archive --sign key Marbrel VST3 {B} out
}}
load() {{ echo "$2" >$1.py; PYTHONPATH=$PWD plain; }}\n"""
GROW = "gzip.GzipFile = lambda *words: [print('more', file=open(path, 'a')), real(*words)][1]"


def fails(why):
    return 1, "", f"make-package: {why}\n"


ENDS = {
    "another run makes the output": ("sign 'touch out'", fails("already exists: out")),
    "ssh-keygen says two lines": ("sign 'seq 2 >&2; false'", fails("refused by ssh-keygen: 1; 2")),
    "the archive cannot move": ("sign 'mv $8 $8.sig'", fails("No such file or directory: out")),
    "a file grows after its digest was taken": (
        f'load sitecustomize "import gzip; real = gzip.GzipFile; path = \'{B}/a\'; {GROW}"',
        fails("a bundle changed while it was packed")),
    "a bundle has a link": (f"ln -s a {B}/l; plain", fails(f"symbolic link: {B}/l")),
    "a file manager was there": (f"touch {B}/._; plain", fails(f"left by a file manager: {B}/._")),
    "macOS would treat two names as equal": (f"touch {B}/e\u0301 {B}/\u00c9; plain", fails(
        f"macOS treats these names as equal: {B}/e\u0301 and {B}/\u00c9")),
    "an option is abbreviated": ("./make-package --arch a b c d 2>/dev/null", (2, "", "")),
    "a signal comes while it works": ("sign 'kill $PPID'", (-15, "", "")),
    "it is interrupted early": ("load argparse 'import os; os.kill(os.getpid(), 2)'", (-2, "", "")),
}


@pytest.mark.parametrize("code, ended", ENDS.values(), ids=ENDS)
def test_leaves_nothing_if(studio, code, ended):
    studio.package("1", {f"{HD}/a": ""})
    # Tests that run in the background may have been started with it ignored.
    default = {"preexec_fn": lambda: signal.signal(signal.SIGINT, signal.SIG_DFL)}
    status, out, err = studio.sh(PREPARED + code, **default)
    assert (status, out, err.replace(f"{studio.place}/", "")) == ended
    assert [*studio.place.glob(".make*"), *studio.place.glob("out?*")] == []


def test_the_same_bundles_give_the_same_bytes_with_little_memory_too(studio):
    studio.package("1", {f"{HD}/{name}": name for name in ("-", "d/-/ä", "d-/x\\ny", " *")})
    for name, code in [("one", f"truncate -s 64M {B}/large; chmod 755"),
                       ("two", "ulimit -v 64000; umask 077; chmod 770")]:
        status, _, err = studio.sh(f"""{code} {B}/-
        exec '{ROOT}/tools/make-package' --archive Marbrel VST3 {B} {name}""")
        assert status == 0 and err.endswith(": left out of the package: MarbrelLowCPU.vst3\n"), err
    assert (studio.place / "one").read_bytes() == (studio.place / "two").read_bytes()
