#!/usr/bin/env python3
"""The completion for bash: its function called as bash calls it, and keys typed in a real shell."""

import argparse
import itertools
import pathlib
import tempfile
import unittest

from shells import TypedShell, bash_offers, run_tests

OPTIONS = argparse.Namespace()
ACTIONS = {"dump_backup", "dump_backup_set", "dump_backup_set_list", "list_backups"}


def offered(*words):
    return set(bash_offers(OPTIONS.completion, *words)[0])


class CalledDirectly(unittest.TestCase):
    def test_an_option_is_completed_by_its_beginning(self):
        self.assertEqual(offered("--c"), {"--client", "--count"})

    def test_the_names_of_the_actions_follow_action(self):
        self.assertEqual(offered("--action", ""), ACTIONS)
        self.assertEqual(offered("--action", "l"), {"list_backups"})

    def test_levels_follow_verbose(self):
        self.assertEqual(offered("--verbose", ""), {"0", "1", "2", "3"})

    def test_free_text_is_left_to_the_user(self):
        for option in ("--policy", "--client", "--schedule", "--time", "--count", "--backup_id"):
            for text in ("", "-", "--act"):
                self.assertEqual(bash_offers(OPTIONS.completion, option, text), ([], []), option)

    def test_directories_are_left_to_the_shell(self):
        self.assertEqual(bash_offers(OPTIONS.completion, "--output_dir", ""),
                         ([], ["compopt -o plusdirs"]))

    def test_a_value_is_no_option_whatever_it_looks_like(self):
        self.assertIn("--policy", offered("--policy", "--action", ""))
        self.assertNotIn("list_backups", offered("--policy", "--action", ""))
        self.assertEqual(offered("--verbose", "--action", "list"), set())
        self.assertIn("--policy", offered("--client", "--help", ""))

    def test_only_options_that_the_action_takes_are_offered(self):
        always = {"--action", "--verbose", "--help", "-h"}
        self.assertEqual(offered("--action", "dump_backup", ""),
                         always | {"--backup_id", "--output_dir"})

    def test_the_value_of_another_option_is_no_action(self):
        self.assertEqual(offered("--policy", "dump_backup", ""), offered(""))

    def test_the_last_action_counts(self):
        words = ("--action", "list_backups", "--action", "dump_backup", "")
        self.assertEqual(offered(*words), offered("--action", "dump_backup", ""))

    def test_nothing_follows_help(self):
        self.assertEqual(offered("--help", ""), set())
        self.assertEqual(offered("-h", "--a"), set())
        self.assertEqual(offered("--help", "x", "--a"), set())


SETUP = rf"""
bind 'set bell-style none'
bind 'set completion-display-width 0'
bind 'set completion-query-items 0'
bind 'set enable-bracketed-paste off'
bind 'set page-completions off'
bind 'set show-all-if-ambiguous on'
report() {{
  printf '\nLINE<%s>END\n' "$READLINE_LINE"
  READLINE_LINE=''
}}
bind -x '"\C-xp": report'
PS1='{TypedShell.PROMPT}'
"""


class TypedKeys(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        directory = pathlib.Path(folder.name)
        for name in ("out1", "outer", "My Documents"):
            (directory / name).mkdir()
        (directory / "outfile").touch()
        cls.shell = TypedShell(["bash", "--norc", "--noprofile", "-i"], directory,
                               SETUP + f"source '{OPTIONS.completion}'\n")
        cls.addClassCleanup(cls.shell.close)

    def complete(self, line):
        """The line that the tab key makes of `line`, and what is listed below it: one a line,
        between the line that was typed and the prompt, if that is shown again."""
        line, shown = self.shell.complete(line)
        below = itertools.takewhile(lambda text: text and not text.startswith(TypedShell.PROMPT),
                                    shown.split("\r\n")[1:])
        return line, set(below)

    def test_the_beginning_of_an_option_becomes_the_option(self):
        self.assertEqual(self.complete("quillmere --act"), ("quillmere --action ", set()))

    def test_an_ambiguous_action_is_listed(self):
        self.assertEqual(self.complete("quillmere --action dump_backup_set"),
                         ("quillmere --action dump_backup_set",
                          {"dump_backup_set", "dump_backup_set_list"}))

    def test_a_value_leaves_the_options_that_the_action_takes(self):
        self.assertEqual(self.complete("quillmere --action list_backups --s"),
                         ("quillmere --action list_backups --schedule ", set()))

    def test_directories_are_listed_and_files_are_not(self):
        self.assertEqual(self.complete("quillmere --output_dir out"),
                         ("quillmere --output_dir out", {"out1/", "outer/"}))

    def test_a_directory_ends_in_a_slash_and_without_a_blank(self):
        self.assertEqual(self.complete("quillmere --output_dir out1"),
                         ("quillmere --output_dir out1/", set()))

    def test_a_blank_in_a_directory_is_quoted(self):
        self.assertEqual(self.complete("quillmere --output_dir My"),
                         ("quillmere --output_dir My\\ Documents/", set()))

    def test_free_text_stays_as_it_is(self):
        for line in ("quillmere --policy out", "quillmere --time ", "quillmere --backup_id --act"):
            self.assertEqual(self.complete(line), (line, set()))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--completion", required=True,
                        type=lambda name: pathlib.Path(name).resolve())
    parser.parse_args(namespace=OPTIONS)
    run_tests("bash")
