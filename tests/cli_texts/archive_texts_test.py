#!/usr/bin/env python3
"""Holds all that is written about the command line of quillmere-archive against its own help texts:
the manual page, docs/archive.md and the completions, which are tried out in their shells as well.
"""

import argparse
import pathlib
import re
import subprocess
import tempfile
import unittest

from shells import TypedShell, bash_offers, run_tests
from zsh_completion_test import SETUP

OPTIONS = argparse.Namespace()
HELP = {"-h", "--help"}
OPTION = re.compile(r"(?<![\w-])--?[a-z][a-z-]*")


def run(*arguments):
    result = subprocess.run([OPTIONS.program, *arguments], capture_output=True, text=True,
                            check=False, timeout=60)
    return result.returncode, result.stdout, result.stderr


def options_of_help(*command):
    """Each option of the help text, and whether a value stands behind it."""
    status, text, _ = run(*command, "--help")
    assert status == 0, command
    return {name: bool(re.match(r" [A-Z_]+(=\S+)?( |$)", rest))
            for names, rest in re.findall(r"^  (-[a-z-]+(?:,--[a-z-]+)?)(.*)$", text, re.MULTILINE)
            for name in names.split(",")}


def commands_of_help():
    return re.findall(r"^  (\w+) ", run("--help")[1].partition("Subcommands:")[2], re.MULTILINE)


class Texts(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.commands = {name: options_of_help(name) for name in commands_of_help()}
        cls.of_program = set(options_of_help())
        cls.page = OPTIONS.man_page.read_text()

    def page_items(self):
        """The options below each command, with whether an argument stands behind them."""
        section = self.page.partition(".Ss Commands\n")[2].partition(".Ss ")[0]
        items = {}
        for macro, name, rest in re.findall(r"^\.It (Cm|Fl) (\S+)(.*)$", section, re.MULTILINE):
            if macro == "Cm":
                options = items.setdefault(name, {})
            else:
                options["-" + name] = " Ar " in rest
        return items

    def synopsis(self):
        blocks = self.page.partition(".Sh SYNOPSIS\n")[2].partition(".Sh ")[0].split(".Nm\n")
        return {found[1]: {"-" + name for name in re.findall(r"(?<=[ .])Fl (\S+)", block)}
                for block in blocks if (found := re.match(r"\.Cm (\w+)\n", block))}

    def without_help(self, command):
        return {name: takes for name, takes in self.commands[command].items() if name not in HELP}

    def test_the_program_has_these_commands(self):
        self.assertEqual(list(self.commands),
                         ["init", "sync", "list", "verify", "prune", "find", "entries"])
        self.assertEqual(self.of_program, HELP | {"--version"})

    def test_the_manual_page_describes_every_option_and_no_other(self):
        expected = {command: self.without_help(command) for command in self.commands}
        self.assertEqual(self.page_items(), expected)
        self.assertEqual(self.synopsis(), {name: set(options) for name, options in expected.items()})

    def test_the_table_of_the_layout_s_document_has_every_option_and_no_other(self):
        rows = re.findall(r"^\| `(\w+) (?:ARCHIVE|SOURCE)(?: PATTERN)?`\+? \| (.*) \|$",
                          OPTIONS.document.read_text(), re.MULTILINE)
        self.assertEqual({command: set(OPTION.findall(options)) for command, options in rows},
                         {command: set(self.without_help(command)) for command in self.commands})

    def test_bash_offers_every_option_and_no_other(self):
        self.assertEqual(self.bash(""), set(self.commands) | self.of_program)
        for command, options in self.commands.items():
            self.assertEqual(self.bash(command, "-"), set(options), command)
            for option in options.keys() - HELP:
                expected = set() if options[option] else set(options)
                self.assertEqual(self.bash(command, option, "-"), expected, option)

    def bash(self, *words):
        return set(bash_offers(OPTIONS.bash, *words, program="quillmere-archive")[0])

    def test_bash_leaves_the_archive_to_the_shell(self):
        for words in (("sync", ""), ("list", "--json", ""), ("sync", "--jobs", "2", "a")):
            self.assertEqual(bash_offers(OPTIONS.bash, *words, program="quillmere-archive"),
                             ([], ["compopt -o plusdirs"]))
        self.assertEqual(bash_offers(OPTIONS.bash, "entries", "", program="quillmere-archive"),
                         ([], ["compopt -o default"]))

    def test_wrong_arguments_are_status_2_and_named_on_standard_error(self):
        for arguments in ((), ("sync",), ("sink", "x"), ("sync", "--nights", "x"),
                          ("sync", "--jobs", "0", "x"), ("sync", "--newer-than", "soon", "x"),
                          ("init", "--compress", "20", "x"), ("list", "--sets", "--images", "x"),
                          ("prune", "x"), ("find", "x"), ("find", "--before", "noon", "x", "y"), ("entries",),
                          ("entries", "--format", "csv", "x"), ("entries", "--columns", "no", "x")):
            status, stdout, stderr = run(*arguments)
            self.assertEqual((status, stdout), (2, ""), arguments)
            self.assertNotEqual(stderr, "", arguments)


class Zsh(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        directory = pathlib.Path(folder.name)
        (directory / "archive1").mkdir()
        (directory / "archive.txt").touch()
        setup = SETUP.format(folder=OPTIONS.zsh.parent, prompt=TypedShell.PROMPT)
        cls.shell = TypedShell(["zsh", "-f", "-i"], directory, setup)
        cls.addClassCleanup(cls.shell.close)

    def offered(self, line):
        _, shown = self.shell.complete(f"quillmere-archive {line}")
        words = shown.rpartition("OFFERED<")[2].rstrip(">").split(",")
        return {word.rstrip("/") for word in words if word}

    def test_commands_come_first(self):
        self.assertEqual(self.offered(""), set(commands_of_help()))

    def test_each_command_s_options_are_offered(self):
        self.assertEqual(self.offered("-"), set(options_of_help()))
        for command in commands_of_help():
            self.assertEqual(self.offered(f"{command} -"), set(options_of_help(command)), command)

    def test_an_option_that_can_be_repeated_is_offered_again(self):
        behind = self.offered("sync --client a --jobs 2 -")
        self.assertIn("--client", behind)
        self.assertNotIn("--jobs", behind)

    def test_directories_are_offered_for_the_archive(self):
        self.assertEqual(self.offered("sync arch"), {"archive1"})
        self.assertEqual(self.offered("sync --client arch"), set())
        self.assertEqual(self.offered("entries arch"), {"archive1", "archive.txt"})
        self.assertEqual(self.offered("entries --format "), {"tsv", "ndjson"})


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="quillmere-archive")
    for name in ("--man-page", "--document", "--bash", "--zsh"):
        parser.add_argument(name, required=True, type=lambda name: pathlib.Path(name).resolve())
    parser.parse_args(namespace=OPTIONS)
    run_tests("bash", "zsh")
