#!/usr/bin/env python3
"""What a sync and the product's commands ask of the kernel is what the service's unit allows."""

import pathlib
import re
import subprocess
import sys

import archive

UNIT = pathlib.Path(__file__).resolve().parents[2] / "packaging/systemd/quillmere-archive.service"


def calls_of(group):
    """The names of the system calls in a group, and in the groups in it."""
    listed = subprocess.run(["systemd-analyze", "syscall-filter", "--no-pager", group], check=True,
                            capture_output=True, text=True).stdout
    found = set()
    for name in re.findall(r"^ +([@\w-]+)$", listed, re.MULTILINE):
        found |= calls_of(name) if name.startswith("@") else {name}
    return found


def allowed_calls():
    allowed = set()
    for groups in re.findall(r"^SystemCallFilter=(.*)$", UNIT.read_text(), re.MULTILINE):
        for group in groups.lstrip("~").split():
            allowed = allowed - calls_of(group) if groups[0] == "~" else allowed | calls_of(group)
    # systemd starts the program under the filter, so that these are always allowed.
    return allowed | {"execve", "exit", "exit_group", "rt_sigreturn"}


class Service(archive.ArchiveTest):
    def calls(self, *arguments):
        """The system calls of a run, its workers and commands."""
        trace = self.folder / "trace"
        status = self.run_program(*arguments, under=[
            "strace", "--follow-forks", "--seccomp-bpf", "-e", "trace=all", "-e", "signal=none", "-o",
            trace])[0]
        self.assertEqual(status, 0)
        return set(re.findall(r"^\d+ +(?:<\.\.\. )?(\w+)[( ]", trace.read_text(errors="replace"),
                              re.MULTILINE))

    def test_every_call_is_allowed(self):
        allowed = allowed_calls()
        self.assertIn("openat", allowed)
        self.assertNotIn("setuid", allowed)
        made = self.calls("init", self.archive) | self.calls("sync", self.archive)
        self.assertIn("renameat", made)
        self.assertEqual(made - allowed, set())
        made = self.calls("verify", self.archive) | self.calls("list", self.archive)
        made |= self.calls("prune", "--older-than", "1d", "--force", self.archive)
        self.assertEqual(made - allowed, set())


if __name__ == "__main__":
    if subprocess.run(["sh", "-c", "command -v systemd-analyze"], check=False,
                      stdout=subprocess.DEVNULL).returncode != 0:
        print("skipped: there is no systemd-analyze")
        sys.exit(77)
    archive.main(__doc__)
