#!/usr/bin/env python3
"""A sync that is killed at any time, interrupted, or loses its power: what it leaves, and what the next
one makes of that."""

import os
import re
import signal
import subprocess
import time

import archive
from archive import LAST, SMALL_IDS, lines, summary
from model import masked, tree

KILLS = int(os.environ.get("QUILLMERE_ARCHIVE_KILLS", "20"))
NIGHTS = {"seed": 6, "clients": 2, "policies": 2, "nights": 3, "entries": 200}


class CrashTest(archive.ArchiveTest):
    CATALOGUE = NIGHTS

    def setUp(self):
        super().setUp()
        self.init()

    def check_whole(self, expected):
        """Every image and set that is there is one of the expected ones, whole."""
        left = {path: data for path, data in tree(self.archive).items()
                if not path.startswith(".staging/") and not path.endswith("/")}
        self.assertLessEqual(left.items(), expected.items())
        images = tuple({path.rsplit("/", 1)[0] + "/" for path in left if path.startswith("images/")
                        and path.count("/") == 3})
        self.assertEqual({path for path in expected if path.startswith(images)},
                         {path for path in left if path.startswith("images/")})

    def seconds_of_a_sync(self):
        start = time.monotonic()
        self.run_program("sync", "--jobs", "2", self.archive)
        return time.monotonic() - start

    def remove_archive(self):
        subprocess.run(["rm", "-rf", self.archive], check=True)


class Killed(CrashTest):
    def test_at_any_time_the_next_sync_makes_the_same_archive(self):
        self.faults("* * slow 5")
        expected = self.model.files()
        whole = self.seconds_of_a_sync()
        self.check_tree(expected)
        for number in range(KILLS):
            with self.subTest(number):
                self.remove_archive()
                self.init()
                process = self.start(["sync", "--jobs", "2", self.archive])
                time.sleep(whole * (number + 0.5) / KILLS)
                process.kill()
                process.wait()
                self.check_whole(expected)
                # At once, while a command of the run before may still be at work.
                self.assertEqual(self.run_program("sync", "--quiet", self.archive), (0, b"", b""))
                self.wait_for_end_of_session(process)
                self.check_tree(expected)
                self.assertEqual(list((self.archive / ".staging").glob("*")), [])
        self.check_verified()


class Interrupted(CrashTest):
    def check_ended(self, number, to_group):
        self.faults("qvmeta * slow 50", "rec_unfold * hang")
        process = self.start(["sync", "--jobs", "2", self.archive])
        end = time.monotonic() + archive.TIMEOUT
        while not any(b"rec_unfold" in self.command_of(pid) for pid in self.session(process)):
            self.assertLess(time.monotonic(), end)
            time.sleep(0.01)
        (os.killpg if to_group else os.kill)(process.pid, number)
        stdout, stderr = process.communicate(timeout=archive.TIMEOUT)
        self.assertEqual((process.returncode, stdout, stderr), (128 + number, b"", b""))
        # They were killed, and may still be on their way out.
        self.wait_for_end_of_session(process)
        # Nothing at all, but what makes an archive.
        self.check_tree(self.model.archive_json())
        self.assertEqual(list((self.archive / ".staging").glob("*")), [])
        self.faults()
        self.check_sync()
        self.check_tree(self.model.files())

    @staticmethod
    def command_of(pid):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                return file.read()
        except (FileNotFoundError, ProcessLookupError):
            return b""

    def test_by_the_terminal_it_ends_its_commands_and_leaves_nothing(self):
        self.check_ended(signal.SIGINT, to_group=True)

    def test_by_a_service_manager_it_does_the_same(self):
        self.check_ended(signal.SIGTERM, to_group=False)


class PowerFailure(CrashTest):
    """What a disk may lose when the power fails is what was not synced before."""

    CALL = re.compile(r"^\d+ +(\w+)\((.*)\) += (-?\d+)")

    def calls(self):
        """The calls of a sync that count: each with its name and the paths in its arguments."""
        trace = self.folder / "trace"
        calls = "fsync,fdatasync,syncfs,sync,rename,renameat,renameat2,unlink,unlinkat"
        status, _, stderr = self.run_program(
            "sync", "--jobs", "2", self.archive, under=[
                # The sanitizers' search for leaks and strace exclude each other.
                "env", "ASAN_OPTIONS=detect_leaks=0", "strace", "--follow-forks", "--decode-fds=path", "--seccomp-bpf", "-e",
                f"trace={calls}", "-e", "signal=none", "-o", trace])
        self.assertEqual((status, stderr), (0, b""))
        begun = {}
        for line in trace.read_text().splitlines():
            pid = line.split(" ", 1)[0]
            if line.endswith(" <unfinished ...>"):
                begun[pid] = line.removesuffix(" <unfinished ...>")
                continue
            line = re.sub(r"^\d+ +<\.\.\. \w+ resumed>", lambda _: begun.pop(pid), line)
            if (found := self.CALL.match(line)) and found[3] == "0":
                yield found[1], self.paths(found[1], found[2])

    def paths(self, name, arguments):
        """The paths of `fsync(3</folder/name>)` and of `renameat(3</folder>, "name", ...)`."""
        if name in ("fsync", "fdatasync", "syncfs"):
            return [re.search(r"<(.*)>", arguments)[1]]
        return [os.path.join(folder, path) for folder, path in
                re.findall(r'<([^>]*)>, "([^"]*)"', arguments)]

    def test_files_are_synced_before_the_rename_and_folders_after_it(self):
        synced = set()       # that nothing was done to since
        unsynced = set()     # folders that hold a new name
        renamed = 0
        expected = self.model.files()
        for name, paths in self.calls():
            if name in ("fsync", "fdatasync"):
                synced.add(paths[0])
                unsynced.discard(paths[0])
            elif name.startswith("rename"):
                source, target = paths
                relative = os.path.relpath(target, self.archive)
                if relative.startswith("images/"):
                    renamed += 1
                    files = [os.path.join(source, os.path.basename(path)) for path in expected
                             if path.startswith(relative + "/")]
                    self.assertEqual(len(files), 3)
                    for path in [source, *files]:
                        self.assertIn(path, synced, relative)
                elif relative.startswith("sets/"):
                    renamed += 1
                    self.assertIn(source, synced, relative)
                    # A set never comes to the disk before its images.
                    self.assertEqual([path for path in unsynced if "/images" in path], [])
                unsynced.add(os.path.dirname(target))
        self.assertEqual(unsynced - {str(self.archive)}, set())
        images = sum(path.endswith("manifest.json") for path in expected)
        sets = sum(path.startswith("sets/") for path in expected)
        self.assertEqual(renamed, images + sets)
        # Each folder above is new as well, and so is its name in the one above that.
        for path in expected:
            folder = os.path.dirname(os.path.dirname(path)) if path.startswith("images/") else \
                os.path.dirname(path)
            while folder:
                self.assertIn(str(self.archive / folder), synced)
                folder = os.path.dirname(folder)
        self.assertIn(str(self.archive), synced)


if __name__ == "__main__":
    archive.main(__doc__)
