#!/usr/bin/env python3
"""Each command of docs/operations.md is run, in its order, on the stand-in host product. What belongs to
the system (its users, its packages, systemd) is stood in for by commands that look at what they are
given."""

import argparse
import pathlib
import re
import shutil
import time

import console
from console import ROOT, commands
from shells import run_tests

OPTIONS = argparse.Namespace()
UNITS = ROOT / "packaging/systemd"
CATALOGUE = {"seed": 1, "clients": 2, "policies": 2, "nights": 4}
# Commands that end with another status than 0: the catalogue's nights were years ago.
STATUSES = {"list --stale": 1}
# Of four nights, the first one goes.
FIRST_NOON = 1500000000 + 43200  # seconds

STAND_INS = {
    "apt": '[ "$1" = install ] && [ -e "$2" ]',
    "dnf": '[ "$1" = install ] && [ -e "$2" ]',
    "systemd-sysusers": '[ "$*" = quillmere-archive.conf ]',
    "systemd-tmpfiles": '[ "$*" = "--create quillmere-archive.conf" ]',
    "runuser": '[ "$1 $2 $3" = "--user quillmere-archive --" ] && shift 3 && exec "$@"',
    "chgrp": '[ "$1" = quillmere-archive ] && [ -d "$2" ]',
    "chown": '[ "$1 $2" = "--recursive quillmere-archive:quillmere-archive" ] && [ -d "$3" ]',
}


def text_of_guide():
    return (ROOT / "docs/operations.md").read_text(encoding="utf-8")


def commands_of_blocks():
    return [pair for block in console.blocks_of_markdown("docs/operations.md", "#")
            for pair in commands(block, "#")]


def commands_of_table():
    """Those of the table with symptoms."""
    _, _, table = text_of_guide().partition("| symptom |")
    rows = [re.split(r" \| ", line.strip("| ")) for line in table.splitlines()[2:]]
    return [re.fullmatch("`(.*)`", cells[1])[1] for cells in rows]


class Guide(console.Console):
    FOLDERS = ("/etc", "/mnt", "/srv", "/usr/share", "/var/lib")

    def setUp(self):
        super().setUp()
        console.make_catalogue(OPTIONS.generator, OPTIONS.root, **CATALOGUE)
        self.script("quillmere", f'exec {OPTIONS.tool} "$@"')
        self.script("quillmere-archive", f'exec {OPTIONS.program} "$@"')
        for name, line in STAND_INS.items():
            self.script(name, line)
        manager = f'exec python3 {ROOT}/tests/cli_texts/systemctl.py {UNITS} {self.directory} "$@"'
        self.script("systemctl", manager)
        self.script("journalctl", manager)
        self.make_system()

    def make_system(self):
        """What packages and administrators have put where they belong."""
        for package in ("quillmere_1.0.0-1_amd64.deb", "quillmere-1.0.0-1.x86_64.rpm"):
            (self.directory / package).touch()
        for folder in ("etc/default", "etc/prometheus", "mnt/other-site", "srv/backup-catalogue",
                       "var/lib/prometheus/node-exporter", "var/lib/quillmere-archive"):
            (self.directory / folder).mkdir(parents=True)
        shutil.copyfile(UNITS / "quillmere-archive.default",
                        self.directory / "etc/default/quillmere-archive")
        shutil.copytree(UNITS / "examples", self.directory / "usr/share/doc/quillmere/examples")
        shutil.copytree(ROOT / "packaging/prometheus", self.directory / "usr/share/quillmere/prometheus")

    def placed(self, text):
        older = f"{int(time.time()) - FIRST_NOON}s"
        return super().placed(text).replace("/usr/ostra/keelhaven", OPTIONS.root).replace("400d", older)

    def check(self, command, expected=""):
        with self.subTest(command):
            status, output, complaint = self.shell(command)
            self.assertEqual(status, max((value for part, value in STATUSES.items()
                                          if part in command), default=0), output + complaint)
            self.assertEqual(complaint, "")
            if expected:
                self.assertEqual(output, expected)

    def test_can_be_followed(self):
        self.assertGreater(len(commands_of_blocks()), 40)
        for command, expected in commands_of_blocks():
            self.check(command, expected)
        self.assertGreater(len(commands_of_table()), 10)
        for command in commands_of_table():
            self.check(command)
        pruned = self.directory / "srv/backup-catalogue/pruned"
        self.assertNotEqual(list(pruned.glob("*/*.json")), [])

    def test_cron_runs_what_is_there(self):
        self.shell("quillmere-archive init /var/lib/quillmere-archive")
        (line,) = re.findall(r"^    0 6 \* \* \*  quillmere-archive  (.*)$", text_of_guide(), re.MULTILINE)
        self.assertEqual(self.shell(line), (0, "", ""))
        self.assertTrue((self.directory / "var/lib/quillmere-archive/images").exists())

    def test_no_command_is_in_a_block_that_nobody_runs(self):
        lines = re.findall(r"^ {4}(\S.*)$", text_of_guide(), re.MULTILINE)
        run = "".join(f"# {command}\n{output}" for command, output in commands_of_blocks())
        self.assertEqual([line for line in lines if f"{line}\n" not in run],
                         [line for line in lines if line.startswith("0 6 ")])

    def test_every_alert_is_explained(self):
        rules = (ROOT / "packaging/prometheus/quillmere-archive.rules.yml").read_text(encoding="ascii")
        self.assertEqual(re.findall(r"^\| (Quillmere\w+) \|", text_of_guide(), re.MULTILINE),
                         re.findall(r"- alert: (\w+)", rules))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("--program", "--tool", "--generator"):
        parser.add_argument(name, required=True, type=pathlib.Path)
    parser.add_argument("--root", required=True, help="the install root that both were built for")
    parser.parse_args(namespace=OPTIONS)
    run_tests("promtool", "rsync")
