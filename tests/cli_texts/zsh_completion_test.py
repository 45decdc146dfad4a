#!/usr/bin/env python3
"""The completion for zsh: keys typed in a real shell that knows nothing else."""

import argparse
import pathlib
import tempfile
import unittest

from shells import TypedShell, run_tests

OPTIONS = argparse.Namespace()
ACTIONS = {"dump_backup", "dump_backup_set", "dump_backup_set_list", "list_backups"}
ALWAYS = {"--action", "--verbose", "--help", "-h"}

# Where zsh lists what it offers is up to zsh, and it lists nothing while keys are waiting. So the
# command by which completions offer words notes them on their way.
SETUP = r"""
fpath=('{folder}' $fpath)
autoload -Uz compinit
compinit -u -D
setopt auto_list no_beep no_prompt_cr no_prompt_sp
unsetopt list_ambiguous menu_complete auto_menu
compadd() {{
  local -a hits
  if [[ ${{@[1,(i)(-|--)]}} == *-(O|A|D)\ * ]]; then
    builtin compadd "$@"
    return
  fi
  builtin compadd -A hits "$@"
  offered+=("${{hits[@]}}")
  builtin compadd "$@"
}}
report() {{
  zle -I
  print -r -- "OFFERED<${{(j:,:)offered}}>LINE<$BUFFER>END"
  offered=()
  BUFFER=
}}
zle -N report
bindkey -e
bindkey '^Xp' report
PROMPT='{prompt}'
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
        setup = SETUP.format(folder=OPTIONS.completion.parent, prompt=TypedShell.PROMPT)
        cls.shell = TypedShell(["zsh", "-f", "-i"], directory, setup)
        cls.addClassCleanup(cls.shell.close)

    def complete(self, line):
        """The line that the tab key makes of `line`, and the words that are offered for its last."""
        line, shown = self.shell.complete(line)
        return line, set(filter(None, shown.rpartition("OFFERED<")[2].rstrip(">").split(",")))

    def offered(self, line):
        return self.complete(line)[1]

    def test_the_beginning_of_an_option_becomes_the_option(self):
        self.assertEqual(self.complete("quillmere --act"), ("quillmere --action ", {"--action"}))

    def test_every_option_is_offered_while_there_is_no_action(self):
        self.assertEqual(self.offered("quillmere "), self.offered("quillmere -"))
        self.assertEqual(self.offered("quillmere -"), ALWAYS | {
            "--policy", "--client", "--schedule", "--time", "--count", "--backup_id",
            "--output_dir"})

    def test_only_options_that_the_action_takes_are_offered(self):
        taken = {
            "dump_backup_set_list": {"--policy", "--client", "--count", "--output_dir"},
            "dump_backup_set": {"--policy", "--client", "--time", "--output_dir"},
            "list_backups": {"--policy", "--client", "--schedule"},
            "dump_backup": {"--backup_id", "--output_dir"},
        }
        for action, options in taken.items():
            self.assertEqual(self.offered(f"quillmere --action {action} -"), ALWAYS | options)

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

    def test_directories_are_offered_and_files_are_not(self):
        self.assertEqual(self.complete("quillmere --output_dir ou"),
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


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--completion", required=True,
                        type=lambda name: pathlib.Path(name).resolve())
    parser.parse_args(namespace=OPTIONS)
    run_tests("zsh")
