#!/usr/bin/env python3
"""The completion for bash: its function called as bash calls it, and keys typed in a real shell."""

import argparse
import itertools
import pathlib
import unittest

from shells import CompletionTest, TypedShell, bash_offers, run_tests

OPTIONS = argparse.Namespace()

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


class Completion(CompletionTest, unittest.TestCase):
    @staticmethod
    def start(directory):
        return TypedShell(["bash", "--norc", "--noprofile", "-i"], directory,
                          SETUP + f"source '{OPTIONS.completion}'\n")

    def listed(self, shown):
        """One a line, between the line that was typed and the prompt, if that is shown again."""
        return itertools.takewhile(lambda text: text and not text.startswith(TypedShell.PROMPT),
                                   shown.split("\r\n")[1:])

    def offered(self, line):
        return set(bash_offers(OPTIONS.completion, *line.split(" ")[1:])[0])


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--completion", required=True,
                        type=lambda name: pathlib.Path(name).resolve())
    parser.parse_args(namespace=OPTIONS)
    run_tests("bash")
