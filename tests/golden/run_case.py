#!/usr/bin/env python3
"""Runs one golden case: run_case.py [--real-root] [--under COMMAND] PROGRAM ROOT CASE

The program runs with the case's arguments against canned commands under ROOT. Its standard output,
standard error and end, the commands it ran, and the files it left are compared with the case, byte
for byte. README.md describes a case. With --real-root, the program runs in a private mount
namespace in which ROOT holds the canned commands; 77 is the status when there can be none.
"""

import argparse
import difflib
import io
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
PARTS = "args host commands stdout stderr status before files tmp prepare wrapper not-with realroot"
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


def content(path):
    """What stands at `path`, in bytes that tell a file from a folder and from a link."""
    if path.is_symlink():
        return b"(link to " + os.fsencode(os.readlink(path)) + b")"
    return b"(folder)" if path.is_dir() else path.read_bytes()


def tree(folder):
    """What stands in a folder and below, by its path in it; nothing for a folder that is not there."""
    return {
        os.fsencode(path.relative_to(folder)): content(path)
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
        self.word = f"run{os.getpid()}"  # no other run has it meanwhile
        self.places = {"@OUT@": str(self.out), "@ROOT@": root, "@RUN@": self.word}
        shutil.copytree(folder, self.folder, symlinks=True)
        if (self.folder / "prepare").exists():
            subprocess.run([self.folder / "prepare"], cwd=self.folder, check=True)
        for path in self.folder.iterdir():
            if path.name not in PARTS.split():
                sys.exit(f"{folder}: {path.name} is no part of a case")
        for canned in [*self.folder.glob("host/*.out"), *self.folder.glob("host/*.err")]:
            canned.write_bytes(self.fill_in(canned.read_bytes()))
        if (self.folder / "before").is_dir():
            shutil.copytree(self.folder / "before", self.out, symlinks=True)
        self.out.mkdir(exist_ok=True)

    def fill_in(self, text):
        for place, value in self.places.items():
            text = text.replace(place.encode(), os.fsencode(value))
        return text

    def expected(self, name):
        return self.fill_in(read(self.folder / name))

    def expected_tree(self, name):
        return {self.fill_in(at): self.fill_in(what) for at, what in tree(self.folder / name).items()}

    def arguments(self):
        text = self.expected("args")
        lines = text.removesuffix(b"\n").split(b"\n") if text else []
        return [os.fsdecode(line) for line in lines]

    def left_in_tmp(self):
        """Takes out of /tmp what has the run's word in front of its name."""
        paths = list(pathlib.Path("/tmp").glob(f"{self.word}_*"))
        left = {os.fsencode(path.name): content(path) for path in paths}
        for path in paths:
            path.unlink()
        return left


def run_program(case, command):
    """Runs the command line; returns its output, its diagnostics, and its status or signal."""
    environment = dict(os.environ, LC_ALL="C")
    environment.update(GOLDEN_RUN=str(case.run), GOLDEN_OUT=str(case.out), GOLDEN_WORD=case.word)
    with open(case.run / "stdout", "wb") as stdout, open(case.run / "stderr", "wb") as stderr:
        streams = {"stdin": subprocess.DEVNULL, "stdout": stdout, "stderr": stderr}
        process = subprocess.Popen(command, cwd=case.run, env=environment, **streams)
        try:
            ended = process.wait(TIMEOUT)
            status = signal.Signals(-ended).name if ended < 0 else str(ended)
        except subprocess.TimeoutExpired:
            process.kill()
            status = f"none after {TIMEOUT} seconds"
    return read(case.run / "stdout"), read(case.run / "stderr"), status


def show_difference(what, expected, actual):
    print(f"--- {what} differs")
    if max(len(expected), len(actual)) > 100_000:
        at = next((i for i, (a, b) in enumerate(zip(expected, actual)) if a != b), None)
        print(f"expected {len(expected)} bytes, got {len(actual)}; first other byte: {at}")
        return
    lines = [[repr(line)[2:-1] for line in io.BytesIO(text)] for text in (expected, actual)]
    for line in difflib.unified_diff(*lines, "expected", "actual", lineterm=""):
        print(line)


def compare(case, stdout, stderr, status):
    """Prints what differs; returns whether nothing does."""
    pairs = {
        "standard output": (case.expected("stdout"), stdout),
        "standard error": (case.expected("stderr"), stderr),
        "status": (case.expected("status").strip() or b"0", status.encode()),
        "the commands run": (case.expected("commands"), read(case.run / "commands")),
    }
    trees = {
        "the file": (case.expected_tree("files"), tree(case.out)),
        "the file in /tmp": (case.expected_tree("tmp"), case.left_in_tmp()),
    }
    for what, (expected, actual) in trees.items():
        for name in sorted(expected.keys() | actual.keys()):
            pairs[f"{what}: {os.fsdecode(name)}"] = tuple(
                files.get(name, b"(nothing)") for files in (expected, actual)
            )
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
    parser.add_argument(
        "--under",
        default=os.environ.get("GOLDEN_UNDER", ""),
        help="a command line that runs the program, such as a memory checker; else $GOLDEN_UNDER",
    )
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
        if options.under and b"--under" in case.expected("not-with"):
            print("skipped: the case does not run under another program")
            sys.exit(SKIPPED)
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
