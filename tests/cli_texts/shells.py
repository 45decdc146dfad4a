"""Shells in which a completion is tried out: called directly, or by keys typed at a terminal."""

import fcntl
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import termios
import time
import unittest

SKIPPED = 77
TIMEOUT = 60  # seconds; a shell that takes so long hangs


def run_tests(*needed):
    """Runs the tests of the program, or skips them where one of the needed commands is missing."""
    missing = [command for command in needed if shutil.which(command) is None]
    if missing:
        print(f"skipped: there is no {' and no '.join(missing)}")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])


def bash_offers(completion, *words, program="quillmere"):
    """What the completion in the file `completion` offers for the last of `words`, the others of
    which stand before it in the command line, behind the program's name."""
    # Outside of a command line that is being edited, bash has no compopt.
    script = """
        source "$1"
        program=$2
        shift 2
        compopt() { echo "compopt $*" >&2; }
        COMP_WORDS=("$program" "$@")
        COMP_CWORD=$#
        "_${program//-/_}"
        ((${#COMPREPLY[@]} == 0)) || printf '%s\\n' "${COMPREPLY[@]}"
    """
    command = ["bash", "--norc", "--noprofile", "-c", script, "bash", str(completion),
               program, *words]
    result = subprocess.run(command, capture_output=True, text=True, check=True)
    return result.stdout.splitlines(), result.stderr.splitlines()


class TypedShell:
    """A shell at a terminal of its own, in a directory that the setup file may be put in.

    The setup makes PROMPT the prompt, and binds Control-X p to something that prints "LINE<", the
    line being edited and ">END", and empties the line.
    """

    PROMPT = "prompt> "

    def __init__(self, command, directory, setup):
        environment = {"PATH": os.environ["PATH"], "HOME": str(directory), "TERM": "dumb",
                       "LC_ALL": "C", "HISTFILE": "/dev/null"}
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(directory)
            os.execvpe(command[0], command, environment)
        # Wide enough for every line to stay in one.
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 100, 500, 0, 0))
        self.shown = ""
        setup_file = directory / ".setup"
        setup_file.write_text(setup)
        self.run(f"source '{setup_file}'")

    def type(self, keys):
        os.write(self.terminal, keys.encode())

    def wait_for(self, pattern):
        """Waits until `pattern` is shown; drops what is shown up to its end, and returns the match."""
        end = time.monotonic() + TIMEOUT
        while not (match := re.search(pattern, self.shown, re.DOTALL)):
            if not select.select([self.terminal], [], [], max(0, end - time.monotonic()))[0]:
                raise AssertionError(f"no {pattern!r} in {TIMEOUT} seconds, but {self.shown!r}")
            self.shown += os.read(self.terminal, 65536).decode(errors="replace")
        self.shown = self.shown[match.end():]
        return match

    def run(self, command):
        """Runs a command, and waits until the shell asks for the next one."""
        # What is typed is shown, too, and must not look like what is waited for.
        self.type(f"{command}; echo RA''N\r")
        self.wait_for("RAN.*" + self.PROMPT)

    def complete(self, line):
        """Types `line` and the tab key; returns the line that becomes of it, and what was shown
        meanwhile."""
        self.type(f"{line}\t\x18p")
        shown, line = self.wait_for("(.*)LINE<(.*?)>END").groups()
        self.run(":")
        return line, shown

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.close(self.terminal)
        os.waitpid(self.process, 0)
