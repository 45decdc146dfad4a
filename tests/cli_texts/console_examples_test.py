#!/usr/bin/env python3
"""What the README and the manual pages show of a shell happens like that, on the demo's catalogue."""

import argparse
import pathlib
import re
import shutil
import sys
import unittest

import console
from console import ROOT, commands

OPTIONS = argparse.Namespace()
# Complaints of commands that are shown although this catalogue has nothing for them.
NOT_IN_THE_CATALOGUE = {"""quillmere --action list_backups --policy "'R&D daily'\"""":
                        "qvroll: no image matches\n"}


# What commands for root find in place of the system's own.
STAND_INS = {
    "setpriv": '[ "$1 $2 $3 $4 $5" = "--reuid quillmere-archive --regid quillmere-archive '
               '--clear-groups" ] && shift 5 && exec "$@"',
    "systemctl": f'exec python3 {ROOT}/tests/cli_texts/systemctl.py {ROOT}/packaging/systemd . "$@"',
}
CRON = re.compile(r"0 6 \* \* \*  quillmere-archive  ")


def blocks_of_manual_page(program="quillmere"):
    text = (ROOT / f"man/{program}.1").read_text(encoding="ascii")
    blocks = re.findall(r"^\.Bd -literal.*\n((?:.*\n)*?)\.Ed$", text, re.MULTILINE)
    return [block.replace(r"\e", "\\") for block in blocks]


def blocks_of_readme():
    """Those that show quillmere, those that show the other programs, and the rest."""
    blocks = console.blocks_of_markdown("README.md")
    of_others = [block for block in blocks if re.search("quillmere-(archive|report) ", block)]
    of_tool = [block for block in blocks if block.startswith("$") and block not in of_others]
    return of_tool, of_others, [block for block in blocks if block not in of_tool + of_others]


class Examples(console.Console):
    def setUp(self):
        super().setUp()
        self.script("quillmere", f'exec {OPTIONS.program} "$@"')
        console.make_catalogue(OPTIONS.generator, OPTIONS.root, **demo_catalogue())

    def assert_happens(self, blocks):
        for command, expected in (pair for block in blocks for pair in commands(block)):
            with self.subTest(command):
                status, output, complaint = self.shell(command)
                self.assertEqual((status, complaint), (0, NOT_IN_THE_CATALOGUE.get(command, "")))
                if command.startswith("ls "):  # in columns, where there is a terminal
                    self.assertEqual(output.split(), expected.split())
                elif expected:
                    self.assertEqual(output, expected)

    def test_of_the_readme(self):
        blocks, _, _ = blocks_of_readme()
        self.assertEqual(len(blocks), 1)
        self.assert_happens(blocks)

    def test_the_readme_has_no_other_commands_but_those_of_developers(self):
        _, _, others = blocks_of_readme()
        for line in "".join(others).splitlines():
            self.assertRegex(line, r"^(\./scripts/|cmake |quillmere --action ACTION \[)")

    def test_of_the_manual_page(self):
        blocks = [block for block in blocks_of_manual_page() if block.startswith("$")]
        self.assertEqual(len(blocks), 6)
        self.assert_happens(blocks)

    def test_the_manual_page_reads_the_paths_of_an_image_without_entries(self):
        ((command, _),) = [pair for block in blocks_of_manual_page() for pair in commands(block)
                           if "jq" in pair[0]]
        parent = re.sub(r"alpha_\d+", "alpha_1500197001", command)
        self.assertEqual(self.shell(parent), (0, "", ""))

    def test_the_manual_page_uses_a_set_list_only_if_nobody_complained(self):
        (lines,) = [block for block in blocks_of_manual_page() if "consume" in block]
        (self.directory / "srv/export").mkdir()
        self.script("consume", 'head -n 2 "$1"')
        self.assertEqual(self.shell(lines), (0, '{\n    "backup_sets": [\n', ""))
        (pathlib.Path(OPTIONS.root) / "bin/admincmd/qvroll").unlink()
        self.assertEqual(self.shell(lines), (0, "", ""))


class ArchiveExamples(console.Console):
    """Those of quillmere-archive and quillmere-report."""

    FOLDERS = ("/srv", "/var/lib")

    def setUp(self):
        super().setUp()
        for name, program in (("quillmere-archive", OPTIONS.archive),
                              ("quillmere-report", ROOT / "report/quillmere-report")):
            self.script(name, f'exec {program} "$@"')
        for name, line in STAND_INS.items():
            self.script(name, line)
        for folder in ("build/demo", "etc/default", "srv/backup-catalogue", "var/lib/quillmere-archive"):
            (self.directory / folder).mkdir(parents=True)
        shutil.copyfile(ROOT / "packaging/systemd/quillmere-archive.default",
                        self.directory / "etc/default/quillmere-archive")
        console.make_catalogue(OPTIONS.generator, OPTIONS.root, **demo_catalogue())

    def run_blocks(self, blocks):
        """Runs blocks, each in a shell of its own, and returns what each prints."""
        outputs = []
        for block in blocks:
            lines = re.sub("^[$#] ", "", CRON.sub("", block), flags=re.MULTILINE)
            status, output, complaint = self.shell(f"set -e\n{lines}")
            # The catalogue's nights were years ago.
            self.assertEqual((status, complaint), (int("--stale" in block), ""), block)
            outputs.append(output)
        return outputs

    def test_of_the_readme(self):
        _, (demo, service, cron, report), _ = blocks_of_readme()
        listed, _ = self.run_blocks([demo, service])
        self.assertIn("alpha", listed)
        images = self.images_in("build/demo/archive")
        self.assertEqual(self.images_in("var/lib/quillmere-archive"), images)
        shutil.rmtree(self.directory / "var/lib/quillmere-archive/images")
        self.run_blocks([cron, report])
        self.assertEqual(self.images_in("var/lib/quillmere-archive"), images)
        self.assertTrue((self.directory / "report.html").exists())

    def images_in(self, archive):
        return sorted(path.name for path in (self.directory / archive).glob("images/*/*"))

    def test_of_the_manual_page_of_the_archive(self):
        blocks = blocks_of_manual_page("quillmere-archive")
        self.assertEqual(len(blocks), 6)
        listed, _, _, stale, dry_run, checked = self.run_blocks(blocks)
        self.assertIn("alpha", listed)
        self.assertIn("alpha", stale)
        self.assertIn("images", dry_run)
        self.assertEqual(checked.count(": OK\n"), 2)

    def test_of_the_layout_of_an_archive(self):
        (command,) = re.findall(r"^    (cd ARCHIVE.*\n)", (ROOT / "docs/archive.md").read_text(encoding="utf-8"),
                                re.MULTILINE)
        command = command.replace("ARCHIVE/images/CLIENT/BACKUP_ID",
                                  "/srv/backup-catalogue/images/alpha/alpha_1500100639")
        self.assertEqual(self.run_blocks(
            ["quillmere-archive init /srv/backup-catalogue\n"
             "quillmere-archive sync --quiet /srv/backup-catalogue\n", command])[1],
                         "alpha_1500100639.json: OK\nmanifest.json: OK\n")

    def test_of_the_manual_page_of_the_report(self):
        blocks = blocks_of_manual_page("quillmere-report")
        self.assertEqual(len(blocks), 2)
        self.run_blocks(["quillmere-archive init /var/lib/quillmere-archive\n"
                         "quillmere-archive sync --quiet /var/lib/quillmere-archive\n", *blocks])
        for page in ("srv/report.html", "report.html"):
            self.assertIn("<!DOCTYPE html>", (self.directory / page).read_text(encoding="utf-8"))


def demo_catalogue():
    """The options that the demo makes the catalogue of the four actions with."""
    (line,) = re.findall(r"make_catalogue\" --root \S+ (--seed .*\\\n.*--images .*)",
                         (ROOT / "scripts/demo.sh").read_text(encoding="ascii"))
    return dict(re.findall(r"--(\S+) (\d+)", line))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, type=pathlib.Path, help="the tool")
    parser.add_argument("--archive", required=True, type=pathlib.Path, help="quillmere-archive")
    parser.add_argument("--root", required=True, help="the install root that both were built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    parser.parse_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1])
