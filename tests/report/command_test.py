#!/usr/bin/env python3
"""The command line of quillmere-report: its messages, what it leaves behind, and what is written of it."""

import argparse
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from made_archive import DAY, MONDAY, MadeArchive

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "cli_texts"))
from shells import bash_offers  # noqa: E402

OPTIONS = argparse.Namespace()
IMAGE = re.compile(rb'id="table-[0-9]')


class Commands(unittest.TestCase):
    maxDiff = 4000

    def setUp(self):
        self.scratch = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())).resolve()
        commands = self.scratch / "bin"
        commands.mkdir()
        (commands / "quillmere-archive").symlink_to(OPTIONS.archive)
        self.environment = {"PATH": f"{commands}:/usr/bin:/bin", "LC_ALL": "C"}
        self.work = self.scratch / "work"
        self.work.mkdir()
        self.folder = self.scratch / "archive"

    def make_archive(self):
        made = MadeArchive(self.folder)
        for night in range(3):
            for client in ("alpha", "beta"):
                made.night(client, "P", "full", MONDAY + night * DAY,
                           [f"/{client}/{night}/{file}" for file in range(10)])
        both = [made.image("both", "P", "incr", MONDAY + at, ["/x"] * 4) for at in (1, 2)]
        made.set("both", "P", "incr", MONDAY + 3, images=both)
        return made

    def run_report(self, *arguments, **options):
        return subprocess.run([OPTIONS.report, *arguments], capture_output=True, check=False,
                              env=self.environment, cwd=self.work, timeout=60, **options)

    def check(self, arguments, status=0, stderr="", left=("report.html",), **options):
        """Status and standard error of a run, and the files that it leaves in its folder."""
        run = self.run_report(*arguments, **options)
        self.assertEqual((run.returncode, run.stdout, run.stderr.decode("utf-8", "surrogateescape")),
                         (status, b"", stderr))
        self.assertEqual(sorted(os.listdir(self.work)), sorted(left))

    def shown(self, *arguments):
        """How many images have their entries on the page."""
        self.check([*arguments, self.folder])
        return len(IMAGE.findall((self.work / "report.html").read_bytes()))

    def test_the_page_is_for_its_owner_and_keeps_its_mode(self):
        self.make_archive()
        self.check([self.folder])
        page = self.work / "report.html"
        self.assertEqual(page.stat().st_mode & 0o777, 0o600)
        page.chmod(0o644)
        page.write_bytes(b"old")
        self.check([self.folder])
        self.assertEqual(page.stat().st_mode & 0o777, 0o644)
        self.assertTrue(page.read_bytes().startswith(b"<!DOCTYPE html>"))

    def test_a_link_stays_a_link(self):
        self.make_archive()
        (self.work / "page.html").symlink_to("real.html")
        self.check(["-o", "page.html", self.folder], left=["page.html", "real.html"])
        self.assertEqual(os.readlink(self.work / "page.html"), "real.html")

    def test_entries_of_the_newest_set_of_each_series(self):
        self.make_archive()
        self.assertEqual(self.shown(), 4)

    def test_entries_of_chosen_images_and_sets(self):
        self.make_archive()
        self.assertEqual(self.shown("--image", f"alpha_{MONDAY}"), 1)
        self.assertEqual(self.shown("--set", f"both_{MONDAY + 3}"), 2)
        self.assertEqual(self.shown("--set", f"both_{MONDAY + 3}", "--image", f"alpha_{MONDAY}",
                                    "--image", f"both_{MONDAY + 1}"), 3)

    def test_no_more_entries_than_the_bound(self):
        self.make_archive()
        self.assertEqual(self.shown("--max-entries", "14"), 2)
        self.assertEqual(self.shown("--max-entries", "0"), 0)

    def test_what_was_asked_for_and_has_no_room_is_told(self):
        self.make_archive()
        self.check(["--image", f"alpha_{MONDAY}", "--max-entries", "9", self.folder], 1,
                   f"alpha_{MONDAY}: its 10 file entries, for which there is no room: --max-entries is 9\n")

    def test_images_and_sets_that_are_not_there(self):
        self.make_archive()
        self.check(["--image", "no\nne_1", "--set", f"alpha_{MONDAY}", "--set", "none_2", self.folder], 1,
                   f"no image no\\x0Ane_1 in {self.folder}\nno set none_2 in {self.folder}\n", left=[])

    def test_a_folder_that_is_not_there(self):
        self.make_archive()
        self.check(["-o", "none/page.html", self.folder], 1,
                   "can't write none/page.html: No such file or directory\n", left=[])
        self.check(["-o", ".", self.folder], 1, "can't write .: Is a directory\n", left=[])

    def test_a_page_that_can_t_be_written_leaves_the_old_one(self):
        self.make_archive()
        (self.work / "report.html").write_bytes(b"old")

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))

        self.check([self.folder], 1, "can't write report.html: File too large\n", preexec_fn=limit)
        self.assertEqual((self.work / "report.html").read_bytes(), b"old")
        (self.work / "report.html").unlink()
        self.check([self.folder], 1, "can't write report.html: File too large\n", left=[],
                   preexec_fn=limit)

    def test_a_full_disk_leaves_the_old_page(self):
        self.make_archive()
        script = f"""
            mount -t tmpfs -o size=64k none {self.work} && cd {self.work} && echo old >report.html
            "$@" ; echo "status $?" ; ls -A ; cat report.html"""
        run = subprocess.run(["unshare", "--mount", *([] if os.geteuid() == 0 else
                                                      ["--user", "--map-root-user"]),
                              "sh", "-c", script, "sh", OPTIONS.report, self.folder],
                             capture_output=True, check=False, env=self.environment, timeout=60)
        if b"unshare" in run.stderr or b"mount" in run.stderr:
            self.skipTest("no mount namespace")
        self.assertEqual((run.stdout, run.stderr),
                         (b"status 1\nreport.html\nold\n",
                          b"can't write report.html: No space left on device\n"))

    def test_a_signal_leaves_nothing(self):
        self.make_archive()
        # A program that takes its time in the place of the one that reads the entries.
        slow = self.scratch / "bin/quillmere-archive"
        slow.unlink()
        slow.write_text("#!/bin/sh\n: >started\nexec sleep 60\n")
        slow.chmod(0o755)
        process = subprocess.Popen([OPTIONS.report, self.folder], env=self.environment, cwd=self.work)
        end = time.monotonic() + 30
        while not (self.work / "started").exists():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(30), 128 + signal.SIGTERM)
        self.assertEqual(os.listdir(self.work), ["started"])

    def test_archives_that_are_none(self):
        for make, message in (
                (lambda: None, "can't open {0}: No such file or directory\n"),
                (self.folder.mkdir,
                 "{0}/archive.json: no such file; quillmere-archive init makes an archive\n"),
                (lambda: (self.folder / "archive.json").write_text("{}"),
                 "{0}/archive.json: not of quillmere-archive\n"),
                (lambda: (self.folder / "archive.json").write_text(
                    '{"format": "quillmere-archive", "version": 2}'),
                 "{0}/archive.json: format version 2 is newer than this program\n")):
            make()
            self.check([self.folder], 4, message.format(self.folder), left=[])

    def test_what_cannot_be_read_is_told_and_the_rest_is_written(self):
        self.make_archive()
        manifest = self.folder / f"images/alpha/alpha_{MONDAY}/manifest.json"
        manifest.write_text("{")
        self.check([self.folder], 4, f"images/alpha/alpha_{MONDAY}/manifest.json: not JSON\n"
                   f"sets/alpha/P/full/{MONDAY}.json: the image alpha_{MONDAY} is not there\n")

    def test_without_the_program_that_reads_entries(self):
        self.make_archive()
        (self.scratch / "bin/quillmere-archive").unlink()
        missing = "quillmere-archive, which reads the entries, is not in the PATH"
        self.check([self.folder], 4, "".join(
            f"{image}: {missing}\n" for image in (f"alpha_{MONDAY + 2 * DAY}", f"beta_{MONDAY + 2 * DAY}",
                                                  f"both_{MONDAY + 1}", f"both_{MONDAY + 2}")))

    def test_wrong_arguments(self):
        for arguments in ((), ("--max-entries", "many", "x"), ("--max-entries", "-1", "x"), ("--no", "x"),
                          ("x", "y"), ("--imag", "i", "x")):
            run = self.run_report(*arguments)
            self.assertEqual((run.returncode, run.stdout), (2, b""), arguments)
            self.assertTrue(run.stderr.startswith(b"usage: quillmere-report "), run.stderr)

    def test_the_archive_stays_as_it_is(self):
        self.make_archive()

        def state():
            return sorted((path, path.stat().st_mtime_ns) for path in self.folder.rglob("*"))

        before = state()
        self.check([self.folder])
        self.assertEqual(state(), before)


class Texts(unittest.TestCase):
    """Help, manual page and completions say the same."""

    @classmethod
    def setUpClass(cls):
        run = subprocess.run([OPTIONS.report, "--help"], capture_output=True, text=True, check=True)
        cls.options = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", run.stdout.partition("options:")[2]))

    def test_the_options(self):
        self.assertEqual(self.options, {"-h", "--help", "-o", "--output", "--image", "--set",
                                        "--max-entries", "--version"})

    def test_the_version(self):
        run = subprocess.run([OPTIONS.report, "--version"], capture_output=True, text=True, check=True)
        self.assertEqual(run.stdout, "quillmere-report 1.0.0\n")

    def test_the_manual_page_has_each_option(self):
        page = (OPTIONS.source / "man/quillmere-report.1").read_text()
        items = re.findall(r"^\.It Fl (.*)$", page, re.MULTILINE)
        names = {"-" + name for item in items for name in item.partition(" Ar ")[0].split(" , ")}
        self.assertEqual(names, self.options)

    def test_bash_offers_each_option(self):
        completion = OPTIONS.source / "completions/quillmere-report.bash"

        def offers(*words):
            return bash_offers(completion, *words, program="quillmere-report")

        self.assertEqual(set(offers("-")[0]), self.options)
        self.assertEqual(offers(""), ([], ["compopt -o plusdirs"]))
        self.assertEqual(offers("-o", ""), ([], ["compopt -o default"]))
        self.assertEqual(offers("--image", "-"), ([], []))

    def test_zsh_knows_each_option(self):
        text = (OPTIONS.source / "completions/_quillmere-report").read_text()
        self.assertEqual(set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*(?=[\[,}])", text)), self.options)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--report", required=True, help="quillmere-report")
    parser.add_argument("--archive", required=True, help="quillmere-archive")
    parser.add_argument("--source", required=True, type=pathlib.Path, help="the top folder")
    parser.parse_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1])
