#!/usr/bin/env python3
"""What stands in the place of the output directory, of the temporary file and of a document."""

import os

import faults
from faults import FIRST, IMAGE, METADATA, SECOND, SET, SET_LIST

DOCUMENT = f"{FIRST}.json"
TEMPORARY = f"{FIRST}.qvmeta.json"
SETS = "backup_sets.json"
IMAGE_FAILED = b"dump_backup() failed. ret=1\n"

# Permissions bind root as well when it can't override them.
AS_ANY_USER = (
    ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
)


def cannot_create(path):
    return f"fopen() failed. can't create file {path}\n".encode()


def cannot_open(path):
    return faults.uncaught_json_error(f"{path}: cannot open file")


class OutputDirectory(faults.FaultTest):
    def check_refused(self, directory, files, under=()):
        """No action can create a file in the directory, and the files in `out` stay as they are."""
        to_directory = ["--output_dir", str(directory)]
        run = {"under": under, "files": files}
        stderr = cannot_create(directory / TEMPORARY)
        self.check_run(IMAGE + to_directory, status="1", stderr=stderr, **run)
        self.check_run(SET + to_directory, status="1", stderr=stderr + IMAGE_FAILED, **run)
        stderr = cannot_open(directory / SETS)
        self.check_run(SET_LIST + to_directory, status="SIGABRT", stderr=stderr, **run)

    def test_that_is_a_file(self):
        (self.out / "file").write_bytes(b"text")
        self.check_refused(self.out / "file", {"file": b"text"})

    def test_that_is_a_dangling_link(self):
        (self.out / "link").symlink_to("nothing")
        self.check_refused(self.out / "link", {"link": "link to nothing"})

    def test_without_permission_to_write(self):
        self.out.chmod(0o555)
        self.check_refused(self.out, {}, AS_ANY_USER)

    def test_that_is_a_link_to_a_directory(self):
        link = self.folder / "link"
        link.symlink_to(self.out)
        files = {DOCUMENT: faults.document(), f"{SECOND}.json": faults.document()}
        self.check_run([*SET, "--output_dir", str(link)], files=files)

    def test_from_which_nothing_can_be_removed(self):
        # The documents are written all the same, and the temporary file stays.
        for name in (DOCUMENT, TEMPORARY):
            (self.out / name).write_bytes(b"old")
        self.out.chmod(0o555)
        self.check_run(
            IMAGE + self.to_out,
            under=AS_ANY_USER,
            files={DOCUMENT: faults.document(), TEMPORARY: METADATA},
        )


class File(faults.FaultTest):
    """The file of a document, or the temporary one, is there already."""

    DOCUMENTS = (
        (IMAGE, DOCUMENT, faults.document()),
        (SET_LIST, SETS, faults.set_list()),
    )

    def test_that_only_may_be_read_stays(self):
        for arguments, name, _ in self.DOCUMENTS:
            with self.subTest(name):
                path = self.out / name
                path.write_bytes(b"old")
                path.chmod(0o444)
                self.check_run(
                    arguments + self.to_out,
                    under=AS_ANY_USER,
                    status="SIGABRT",
                    stderr=cannot_open(path),
                    files={name: b"old"},
                )
                path.unlink()

    def test_temporary_that_only_may_be_read_stays(self):
        path = self.out / TEMPORARY
        path.write_bytes(b"old")
        path.chmod(0o444)
        self.check_run(
            IMAGE + self.to_out,
            under=AS_ANY_USER,
            status="1",
            stderr=cannot_create(path),
            files={TEMPORARY: b"old"},
        )

    def test_that_is_a_link_is_written_where_it_leads(self):
        for arguments, name, expected in self.DOCUMENTS:
            for old in (b"old" * 1000, None):
                with self.subTest(name, dangling=old is None):
                    if old:
                        (self.out / "target").write_bytes(old)
                    (self.out / name).symlink_to("target")
                    self.check_run(
                        arguments + self.to_out, files={name: "link to target", "target": expected}
                    )
                    (self.out / name).unlink()
                    (self.out / "target").unlink()

    def test_that_is_a_link_into_nowhere_cannot_be_opened(self):
        for arguments, name, _ in self.DOCUMENTS:
            with self.subTest(name):
                (self.out / name).symlink_to("none/target")
                self.check_run(
                    arguments + self.to_out,
                    status="SIGABRT",
                    stderr=cannot_open(self.out / name),
                    files={name: "link to none/target"},
                )
                (self.out / name).unlink()

    def test_that_is_a_pipe_gives_its_reader_the_document(self):
        for arguments, name, expected in self.DOCUMENTS:
            with self.subTest(name):
                path = self.out / name
                os.mkfifo(path)
                # A reader from the start, and room in the pipe for the document: nobody waits.
                with open(os.open(path, os.O_RDONLY | os.O_NONBLOCK), "rb") as reader:
                    self.check_run(arguments + self.to_out, files={name: "pipe"})
                    self.assertEqual(reader.read(), expected)
                path.unlink()


if __name__ == "__main__":
    faults.main(__doc__)
