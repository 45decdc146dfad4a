#!/usr/bin/env python3
"""export_newest_set.sh on stand-in catalogues, whole and broken ones."""

import os
import shutil
import signal

import example
from example import OPTIONS, ExampleCase, make_product, run_tool


class ExportNewestSet(ExampleCase):
    def setUp(self):
        super().setUp()
        self.product = make_product(seed=1, clients=3, policies=2, images=60, entries=5)
        self.exports = self.directory / "exports"
        self.exports.mkdir()

    def newest(self, client=None, policy=None):
        """The newest set; it is the only one of its second in this catalogue."""
        return max(self.product.sets(client, policy), key=lambda one: one.time)

    def export(self, *arguments, **options):
        return self.example("export_newest_set.sh", *arguments, self.exports, **options)

    def assert_exports_nothing(self, result, status, *words):
        self.assert_fails(result, status, *words)
        self.assertEqual(list(self.exports.iterdir()), [])

    def replace_command(self, name, script):
        """Puts a shell script in the place of a command of the product; without one, nothing."""
        path = OPTIONS.root / "bin" / name
        path.unlink()
        if script:
            path.write_text(script)
            path.chmod(0o755)

    def file_of_a_member(self, suffix):
        """A catalogue file of the last image of the newest set."""
        client, time = self.newest().image_ids[-1].split("_")
        return OPTIONS.root / "db/images" / client / (time[:4] + "000000") / (time + suffix)

    def test_exports_every_image_of_the_newest_set(self):
        def newest_time(client):
            return self.newest(client).time

        # A client and a policy of it without the newest set of all.
        client = min({image.client for image in self.product.images()}, key=newest_time)
        policy = self.product.images(client)[0].policy
        self.assertLess(newest_time(client), newest_time(None))
        for choice in ({}, {"client": client}, {"policy": policy},
                       {"client": client, "policy": policy}):
            with self.subTest(choice=choice):
                arguments = [text for name, value in choice.items()
                             for text in ("--" + name, value)]
                newest = self.newest(**choice)
                target = self.exports / str(newest.time)
                self.assertEqual(self.export(*arguments), (0, bytes(target) + b"\n", b""))
                files = {path.name: path.read_bytes() for path in target.iterdir()}
                self.assertEqual(files.pop("backup_sets.json"),
                                 run_tool("dump_backup_set_list", **choice))
                self.assertEqual(files, {f"{one}.json": run_tool("dump_backup", backup_id=one)
                                         for one in newest.image_ids})
                self.assertEqual(list(self.exports.iterdir()), [target])
                shutil.rmtree(target)

    def test_a_set_that_is_there_is_left_alone(self):
        target = self.exports / str(self.newest().time)
        target.mkdir()
        self.assertEqual(self.export(), (0, bytes(target) + b"\n", b""))
        self.assertEqual((list(self.exports.iterdir()), list(target.iterdir())), ([target], []))

    def test_no_set_is_status_3(self):
        listing = OPTIONS.root / "db/listing"
        header = listing.read_bytes().split(b"\n")[1]
        listing.write_bytes(b"\n" + header + b"\n")
        self.assert_exports_nothing(self.export(), 3, b"there is no backup set")

    def test_a_time_of_0_is_refused(self):
        listing = OPTIONS.root / "db/listing"
        listing.write_bytes(b"".join(b"my_" + line if b"_1" in line else line
                                     for line in listing.read_bytes().splitlines(keepends=True)))
        self.assert_exports_nothing(self.export(), 1, b"the newest set has the time 0")

    def test_a_missing_product_is_no_empty_catalogue(self):
        self.replace_command("admincmd/qvroll", None)
        self.assert_exports_nothing(self.export(), 1, b"qvroll: not found",
                                    b"the product complained")

    def test_images_without_their_entries_are_no_export(self):
        self.replace_command("rec_unfold", None)
        self.assert_exports_nothing(self.export(), 1, b"rec_unfold: not found",
                                    b"the product complained")

    def test_a_failed_image_fails_the_export(self):
        self.replace_command("rec_unfold", "#!/bin/sh\nprintf '1\\t2\\t3\\n'\n")
        self.assert_exports_nothing(self.export(), 1, b"token size mismatch",
                                    b"ended with status 1")

    def test_an_end_by_a_signal_fails_the_export(self):
        self.file_of_a_member(".meta").write_bytes(b"{")
        self.assert_exports_nothing(self.export(), 1, b"qvmeta.json", b"was ended by signal 6")

    def test_an_interrupted_run_leaves_nothing(self):
        # Reaches all processes of the run, as the interrupt key of a terminal does.
        self.replace_command("rec_unfold", "#!/bin/sh\nkill -TERM 0\n")
        result = self.export(start_new_session=True)
        self.assert_exports_nothing(result, -signal.SIGTERM)

    def test_a_value_that_means_something_to_a_shell_never_reaches_one(self):
        for value in ("a;b", "$(id)", "a b", "a\nb", "'a'", "-a", "", "\u00e4", "\udce4"):
            for option in ("--client", "--policy"):
                with self.subTest(option=option, value=value):
                    result = self.export(option, value, environment={"LC_ALL": "C.UTF-8"})
                    self.assert_exports_nothing(result, 2, b"not safe")

    def test_wrong_arguments_show_the_usage(self):
        for arguments in ((), ("",), ("--client",), ("--client", "alpha"), ("--help",), ("a", "b"),
                          ("--time", "5", "a")):
            with self.subTest(arguments=arguments):
                result = self.example("export_newest_set.sh", *arguments, cwd=self.directory)
                self.assert_fails(result, 2, b"usage: export_newest_set.sh")

    def test_a_missing_directory_is_an_error(self):
        self.exports.rmdir()
        self.assert_fails(self.export(), 1, b"No such file or directory")

    def test_the_tool_is_found_in_the_path(self):
        (self.directory / "quillmere").symlink_to(OPTIONS.program)
        path = f"{self.directory}:{os.environ['PATH']}"
        target = self.exports / str(self.newest().time)
        self.assertEqual(self.export(environment={"QUILLMERE": "", "PATH": path}),
                         (0, bytes(target) + b"\n", b""))

    def test_a_missing_tool_is_an_error(self):
        self.assert_exports_nothing(self.export(environment={"QUILLMERE": "/nonexistent/tool"}), 1,
                                    b"/nonexistent/tool", b"ended with status 127")


if __name__ == "__main__":
    example.main()
