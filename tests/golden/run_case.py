#!/usr/bin/env python3
"""Runs one golden case: run_case.py [--real-root] [--under COMMAND] PROGRAM ROOT CASE

The program runs with the case's arguments against canned commands under ROOT. Its standard output,
standard error and end, the commands it ran, and the files it left are compared with the case, byte
for byte. README.md describes a case. With --real-root, the program runs in a private mount
namespace in which ROOT holds the canned commands; 77 is the status when there can be none.
"""

import argparse
import difflib
import os
import pathlib
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
COMMANDS = ("bin/admincmd/qvroll", "bin/admincmd/qvmeta", "bin/rec_unfold")
SKIPPED = 77
TIMEOUT = 120  # seconds; a case that takes so long hangs

# Gives the process its own /usr, a tmpfs with all that /usr holds and the product's root besides,
# so that the root exists for it alone. Called with the root and the folder of canned commands.
REAL_ROOT = r"""
set -e
root=$1 commands=$2 run=$3
shift 3
mkdir -p "$run/usr"
mount -t tmpfs tmpfs "$run/usr"
for entry in /usr/*; do
  if [ -L "$entry" ]; then
    cp -P "$entry" "$run$entry"
  elif [ -d "$entry" ]; then
    mkdir "$run$entry"
    mount --rbind "$entry" "$run$entry"
  fi
done
mkdir -p "$run$root"
mount --bind "$commands" "$run$root"
mount --rbind "$run/usr" /usr
exec "$@"
"""


def read(path):
    """The bytes of a file of the case; none when it is not there."""
    return path.read_bytes() if path.is_file() else b""


def tree(folder):
    """The content of each file below a folder, by its path in it; None for a folder."""
    return {
        str(path.relative_to(folder)): read(path) if path.is_file() else None
        for path in sorted(folder.rglob("*"))
        if path.name != ".gitkeep"
    }


class Case:
    """A private copy of a case in a folder of the run, with an output directory beside it."""

    def __init__(self, run, folder, root):
        self.run = run
        self.folder = run / "case"
        self.out = run / "out"
        self.root = root
        shutil.copytree(folder, self.folder, symlinks=True)
        if (self.folder / "prepare").exists():
            subprocess.run([self.folder / "prepare"], cwd=self.folder, check=True)
        for canned in self.folder.glob("host/*.out"):
            canned.write_bytes(self.fill_in(canned.read_bytes()))
        if (self.folder / "before").is_dir():
            shutil.copytree(self.folder / "before", self.out)
        self.out.mkdir(exist_ok=True)

    def fill_in(self, text):
        return text.replace(b"@OUT@", os.fsencode(self.out)).replace(b"@ROOT@", os.fsencode(self.root))

    def expected(self, name):
        return self.fill_in(read(self.folder / name))

    def arguments(self):
        lines = self.expected("args").split(b"\n")
        return [os.fsdecode(line) for line in lines[:-1]]

    def expected_status(self):
        return self.expected("status").decode().strip() or "0"


def run_program(case, command):
    """Runs the command line; returns its output, its diagnostics, and its status or signal."""
    environment = dict(os.environ, GOLDEN_RUN=str(case.run), GOLDEN_OUT=str(case.out), LC_ALL="C")
    with open(case.run / "stdout", "wb") as stdout, open(case.run / "stderr", "wb") as stderr:
        ended = subprocess.run(
            command,
            cwd=case.run,
            env=environment,
            stdin=subprocess.DEVNULL,
            stdout=stdout,
            stderr=stderr,
            timeout=TIMEOUT,
            check=False,
        ).returncode
    status = signal.Signals(-ended).name if ended < 0 else str(ended)
    return read(case.run / "stdout"), read(case.run / "stderr"), status


def show_difference(what, expected, actual):
    print(f"--- {what} differs")
    if max(len(expected), len(actual)) > 100_000:
        at = next((i for i, (a, b) in enumerate(zip(expected, actual)) if a != b), None)
        print(f"expected {len(expected)} bytes, got {len(actual)}; first other byte: {at}")
        return
    lines = [text.decode("utf-8", "backslashreplace").splitlines(True) for text in (expected, actual)]
    for line in difflib.unified_diff(*lines, "expected", "actual"):
        print(line, end="" if line.endswith("\n") else "\n\\ no newline at the end\n")


def compare(case, stdout, stderr, status):
    """Prints what differs; returns whether nothing does."""
    pairs = {
        "standard output": (case.expected("stdout"), stdout),
        "standard error": (case.expected("stderr"), stderr),
        "status": (case.expected_status().encode(), status.encode()),
        "the commands run": (case.expected("commands"), read(case.run / "commands")),
    }
    expected_files = tree(case.folder / "files") if (case.folder / "files").is_dir() else {}
    files = tree(case.out)
    for name in sorted(expected_files.keys() | files.keys()):
        absent = b"(no such file)"
        expected, actual = expected_files.get(name, absent), files.get(name, absent)
        if isinstance(expected, bytes):
            expected = case.fill_in(expected)
        pairs[f"the file {name}"] = tuple(b"(folder)" if x is None else x for x in (expected, actual))
    for name in read(case.folder / "absent").decode().split():
        pairs[f"the file {name}"] = (b"absent", b"present" if os.path.lexists(name) else b"absent")
    different = {what: pair for what, pair in pairs.items() if pair[0] != pair[1]}
    for what, pair in different.items():
        show_difference(what, *pair)
    return not different


def in_private_namespace(case, commands, command):
    """The command line that runs `command` with the canned commands at the case's root."""
    unshare = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--user", "--map-root-user"])
    try:
        probe = subprocess.run(
            unshare + ["mount", "-t", "tmpfs", "tmpfs", str(case.run)], capture_output=True, check=False
        )
        reason = probe.stderr.decode().strip() if probe.returncode else ""
    except FileNotFoundError:
        reason = "there is no unshare"
    if reason:
        print(f"skipped: no private mount namespace: {reason}")
        sys.exit(SKIPPED)
    return unshare + ["sh", "-c", REAL_ROOT, "sh", case.root, str(commands), str(case.run)] + command


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--real-root", action="store_true")
    parser.add_argument("--under", default="", help="a command line to run the program with")
    parser.add_argument("program")
    parser.add_argument("root")
    parser.add_argument("case", type=pathlib.Path)
    options = parser.parse_args()

    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    with tempfile.TemporaryDirectory(prefix="golden-") as run:
        case = Case(pathlib.Path(run).resolve(), options.case, options.root)
        command = shlex.split(options.under) + [options.program] + case.arguments()
        if (case.folder / "wrapper").exists():
            command = [str(case.folder / "wrapper")] + command
        if options.real_root:
            commands = case.run / "root"
            install_commands(commands, read(case.folder / "realroot").decode().split())
            command = in_private_namespace(case, commands, command)
        sys.exit(0 if compare(case, *run_program(case, command)) else 1)


def install_commands(root, missing):
    """Puts the canned commands, but the missing ones, where the product has its own below `root`."""
    for name in sorted(set(COMMANDS) - set(missing)):
        path = pathlib.Path(root) / name
        path.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(HERE / "host_command", path)


if __name__ == "__main__":
    main()
