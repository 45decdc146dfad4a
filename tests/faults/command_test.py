#!/usr/bin/env python3
"""Commands of the product that are killed, that cannot be run, and that complain."""

import faults
from faults import CLIENT, ENTRY, FIRST, IMAGE, LIST, LISTING, METADATA, SECOND, SET, SET_LIST

COUNT_FAILED = b"parse output of qvrolle failed. output lines is not the same as expected.\n"
DOCUMENTS = {f"{FIRST}.json": faults.document(), f"{SECOND}.json": faults.document()}


class Killed(faults.FaultTest):
    """What a command printed before it was killed counts as all of its output. That it was killed
    is told by the shell."""

    def printed_when_killed(self, text):
        return self.prints(text) + "kill -KILL $$\n"

    def test_qvmeta_in_the_middle(self):
        self.scripts["qvmeta"] = self.printed_when_killed(b'{"a": ')
        path = self.out / f"{FIRST}.qvmeta.json"
        self.check_run(
            IMAGE + self.to_out,
            status="SIGABRT",
            stderr=b"Killed\n" + faults.uncaught_json_error(f"{path}(1): expected value"),
            files={path.name: b'{"a": '},
        )

    def test_qvmeta_behind_its_output(self):
        self.scripts["qvmeta"] = self.printed_when_killed(METADATA)
        self.check_run(
            IMAGE + self.to_out, stderr=b"Killed\n", files={f"{FIRST}.json": faults.document()}
        )

    def test_lookup_behind_its_second_line(self):
        self.scripts["lookup"] = self.printed_when_killed(b"1\n2\n")
        self.check_run(IMAGE + self.to_out, status="1", stderr=b"Killed\n" + COUNT_FAILED)

    def test_lookup_in_the_first_word_of_its_third_line(self):
        self.scripts["lookup"] = self.printed_when_killed(b"1\n2\nx")
        self.check_run(
            IMAGE + self.to_out, status="1", stderr=b"Killed\nparse output of qvroll failed.\n"
        )

    def test_lookup_in_the_name_on_its_third_line(self):
        # Without a newline, the name loses one character more.
        self.scripts["lookup"] = self.printed_when_killed(b"1\n2\nx nam")
        self.scripts["rec_unfold"] = r"""printf '1\t2\t3\t4\t5\t6\t7\t8\t9\t%s\tq\n' "$2"
"""
        path = f"{faults.OPTIONS.root}/db/images/{CLIENT}/1600000000/na".replace("/", r"\/")
        document = faults.document().replace(b'"path": "p"', f'"path": "{path}"'.encode())
        self.check_run(IMAGE + self.to_out, stderr=b"Killed\n", files={f"{FIRST}.json": document})

    def test_listing_of_a_set_before_its_parent(self):
        *rows, _, _ = LISTING.split(b"\n")
        self.scripts["listing"] = self.printed_when_killed(b"\n".join(rows) + b"\n")
        self.check_run(
            SET + self.to_out, status="1", stderr=b"Killed\ncan't find the backup set.\n"
        )

    def test_listing_inside_an_id(self):
        # What is left of the row is the parent of a series of its own, in which it closes no set.
        rows, _, _ = LISTING.partition(b"\n" + SECOND.encode())
        self.scripts["listing"] = self.printed_when_killed(rows + f"\n{CLIENT}_16000".encode())
        lone_image = faults.set_list().replace(b"1600123456", b"1600000001")
        lone_image = lone_image.replace(b"3072", b"1024")
        self.check_run(SET_LIST, stderr=b"Killed\n", stdout=lone_image)

    def test_rec_unfold_at_the_end_of_a_line(self):
        self.scripts["rec_unfold"] = self.printed_when_killed(ENTRY)
        self.check_run(
            IMAGE + self.to_out, stderr=b"Killed\n", files={f"{FIRST}.json": faults.document()}
        )

    def test_rec_unfold_of_the_second_image_in_the_middle(self):
        half = self.printed_when_killed(ENTRY + b"2\t3")
        self.scripts["rec_unfold"] = f"if [ -e {self.out}/{FIRST}.json ]; then\n{half}fi\n" + (
            self.prints(ENTRY)
        )
        self.check_run(
            SET + self.to_out,
            status="1",
            stderr=b"Killed\nparse output failed. token size mismatch\n"
            b"dump_backup() failed. ret=1\n",
            files={f"{FIRST}.json": faults.document()},
        )


class PrintsNothing(faults.FaultTest):
    """A command that does not run, and one that only complains, have printed nothing. Standard error
    of a command is the tool's own, and its status does not count."""

    def check_each(self, complaint, stop):
        """Each command in turn, of each action, complains after `stop` was called with its name."""
        metadata = self.out / f"{FIRST}.qvmeta.json"
        for command, arguments, expected in (
            ("listing", LIST, {}),
            ("listing", SET_LIST, {"stdout": faults.EMPTY_SET_LIST}),
            ("listing", SET + self.to_out,
             {"status": "1", "stderr": b"can't find the backup set.\n"}),
            ("qvmeta", IMAGE + self.to_out,
             {"status": "SIGABRT", "files": {metadata.name: b""},
              "stderr": faults.uncaught_json_error(f"{metadata}(1): expected value")}),
            ("lookup", IMAGE + self.to_out, {"status": "1", "stderr": COUNT_FAILED}),
            ("rec_unfold", IMAGE + self.to_out,
             {"files": {f"{FIRST}.json": faults.DOCUMENT_WITHOUT_ENTRIES}}),
        ):
            with self.subTest(command, arguments=arguments):
                scripts = dict(self.scripts)
                stop(command)
                stderr = complaint(command) + expected.pop("stderr", b"")
                self.check(self.start(arguments), stderr=stderr, **expected)
                self.scripts = scripts
                self.install()
                metadata.unlink(missing_ok=True)

    def test_when_it_is_not_executable(self):
        def path_of(command):
            return self.path_of({"listing": "qvroll", "lookup": "qvroll"}.get(command, command))

        self.install()
        self.check_each(
            lambda command: f"sh: 1: {path_of(command)}: Permission denied\n".encode(),
            lambda command: path_of(command).chmod(0o644),
        )

    def test_when_it_prints_to_standard_error_only(self):
        def complain(command):
            self.scripts[command] = "echo no such thing >&2\nexit 1\n"
            self.install()

        self.check_each(lambda command: b"no such thing\n", complain)


class Complaining(faults.FaultTest):
    """What a command says and how it ends is nothing to the tool when all of its output is there."""

    def test_failure_behind_the_listing_of_the_set_list(self):
        self.scripts["listing"] += "echo failed >&2\nexit 3\n"
        self.check_run(SET_LIST, stdout=faults.set_list(), stderr=b"failed\n")

    def test_failure_of_every_command_of_a_set_behind_its_output(self):
        for command in self.scripts:
            self.scripts[command] += f"echo {command} failed >&2\nexit 3\n"
        image_failures = b"qvmeta failed\nlookup failed\nrec_unfold failed\n"
        self.check_run(
            SET + self.to_out, stderr=b"listing failed\n" + 2 * image_failures, files=DOCUMENTS
        )


if __name__ == "__main__":
    faults.main(__doc__)
