#!/usr/bin/env python3
"""The completion for zsh: keys typed in a real shell that knows nothing else."""

import argparse
import pathlib
import unittest

from shells import CompletionTest, TypedShell, run_tests

OPTIONS = argparse.Namespace()

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


class Completion(CompletionTest, unittest.TestCase):
    @staticmethod
    def start(directory):
        setup = SETUP.format(folder=OPTIONS.completion.parent, prompt=TypedShell.PROMPT)
        return TypedShell(["zsh", "-f", "-i"], directory, setup)

    def listed(self, shown):
        return filter(None, shown.rpartition("OFFERED<")[2].rstrip(">").split(","))

    def offered(self, line):
        return self.complete(line)[1]


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--completion", required=True,
                        type=lambda name: pathlib.Path(name).resolve())
    parser.parse_args(namespace=OPTIONS)
    run_tests("zsh")
