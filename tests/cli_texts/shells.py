"""Shells in which a completion is tried out, called directly or by keys typed at a terminal, and what
holds in all of them."""

import fcntl
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

ACTIONS = {"dump_backup", "dump_backup_set", "dump_backup_set_list", "list_backups"}
ALWAYS = {"--action", "--verbose", "--help", "-h"}
SKIPPED = 77
TIMEOUT = 60  # seconds; a shell that takes so long hangs


def run_tests(*needed, arguments=()):
    """Runs the tests of the program, or skips them where one of the needed commands is missing. The
    arguments choose some of them."""
    missing = [command for command in needed if shutil.which(command) is None]
    if missing:
        print(f"skipped: there is no {' and no '.join(missing)}")
        sys.exit(SKIPPED)
    unittest.main(argv=[sys.argv[0], *arguments])


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


class CompletionTest:
    """What holds for the completion in any shell. A test case of a shell has besides

    start(directory): the TypedShell, in a directory with some entries;
    offered(line): the words that are offered for the last word of `line`;
    listed(shown): those that are listed in what a shell showed after the tab key.
    """

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        directory = pathlib.Path(folder.name)
        for name in ("out1", "outer", "My Documents"):
            (directory / name).mkdir()
        (directory / "outfile").touch()
        cls.shell = cls.start(directory)
        cls.addClassCleanup(cls.shell.close)

    def complete(self, line):
        """The line that the tab key makes of `line`, and what is listed."""
        line, shown = self.shell.complete(line)
        return line, {word.rstrip("/") for word in self.listed(shown)}

    def test_the_beginning_of_an_option_becomes_the_option(self):
        self.assertEqual(self.complete("quillmere --act")[0], "quillmere --action ")
        self.assertEqual(self.offered("quillmere --c"), {"--client", "--count"})

    def test_only_options_that_the_action_takes_are_offered(self):
        taken = {
            "dump_backup_set_list": {"--policy", "--client", "--count", "--output_dir"},
            "dump_backup_set": {"--policy", "--client", "--time", "--output_dir"},
            "list_backups": {"--policy", "--client", "--schedule"},
            "dump_backup": {"--backup_id", "--output_dir"},
        }
        for action, options in taken.items():
            self.assertEqual(self.offered(f"quillmere --action {action} -"), ALWAYS | options)
        self.assertEqual(self.offered("quillmere -"), ALWAYS.union(*taken.values()))
        self.assertEqual(self.offered("quillmere "), self.offered("quillmere -"))

    def test_the_value_of_another_option_is_no_action(self):
        self.assertEqual(self.offered("quillmere --policy dump_backup -"),
                         self.offered("quillmere -"))

    def test_the_last_action_counts(self):
        self.assertEqual(self.offered("quillmere --action list_backups --action dump_backup -"),
                         self.offered("quillmere --action dump_backup -"))

    def test_the_names_of_the_actions_follow_action(self):
        self.assertEqual(self.offered("quillmere --action "), ACTIONS)

    def test_an_ambiguous_action_is_listed(self):
        self.assertEqual(self.complete("quillmere --action dump_backup_set"),
                         ("quillmere --action dump_backup_set",
                          {"dump_backup_set", "dump_backup_set_list"}))

    def test_a_value_is_no_option_whatever_it_looks_like(self):
        self.assertIn("--time", self.offered("quillmere --policy --action -"))
        self.assertEqual(self.offered("quillmere --policy --action d"), set())
        self.assertEqual(self.offered("quillmere --verbose --action d"), set())
        self.assertIn("--time", self.offered("quillmere --client --help -"))

    def test_levels_follow_verbose(self):
        self.assertEqual(self.offered("quillmere --verbose "), {"0", "1", "2", "3"})

    def test_directories_are_listed_and_files_are_not(self):
        self.assertEqual(self.complete("quillmere --output_dir out"),
                         ("quillmere --output_dir out", {"out1", "outer"}))

    def test_a_directory_ends_in_a_slash_and_without_a_blank(self):
        self.assertEqual(self.complete("quillmere --output_dir out1")[0],
                         "quillmere --output_dir out1/")

    def test_a_blank_in_a_directory_is_quoted(self):
        self.assertEqual(self.complete("quillmere --output_dir My")[0],
                         "quillmere --output_dir My\\ Documents/")

    def test_free_text_stays_as_it_is(self):
        for option in ("--policy", "--client", "--schedule", "--time", "--count", "--backup_id"):
            for text in ("", "ou", "--act"):
                line = f"quillmere {option} {text}"
                self.assertEqual(self.complete(line), (line, set()))

    def test_nothing_follows_help(self):
        self.assertEqual(self.offered("quillmere --help -"), set())
        self.assertEqual(self.offered("quillmere -h --a"), set())
        self.assertEqual(self.offered("quillmere --help x --a"), set())
