"""What the tests of the examples share: a catalogue, running an example, documents by hand."""

import argparse
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
from host_product import ENTRY_KEYS, HostProduct, make_catalogue

OPTIONS = argparse.Namespace()


def main():
    """Takes the options that all these tests have, and runs the calling file's cases."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--examples", required=True, type=pathlib.Path)
    parser.add_argument("--program", required=True, help="the tool")
    parser.add_argument("--root", required=True, type=pathlib.Path,
                        help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    _, rest = parser.parse_known_args(namespace=OPTIONS)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    sys.path.insert(0, str(OPTIONS.examples))
    unittest.main(argv=[sys.argv[0], *rest])


def entry(length, path):
    """A file entry of a document; both values are bytes as they stand there, with their escapes."""
    values = [b"1", length, b"41", b"90", b"88", b"1", b"0", b"0", b"64768", path, b"33188 alice"]
    members = [b'            "%s": "%s"' % (key.encode(), value)
               for key, value in zip(ENTRY_KEYS, values, strict=True)]
    return b"        {\n" + b",\n".join(members) + b"\n        }"


def document(*entries, metadata=b'    "backup_id": "alpha_1500100639",\n'):
    """An image document; the metadata are lines of it."""
    array = b"[\n" + b",\n".join(entries) + b"\n    ]" if entries else b'""'
    return b"{\n" + metadata + b'    "fentries": ' + array + b"\n}\n"


class ExampleCase(unittest.TestCase):
    """A case with a directory of its own."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def example(self, name, *arguments, **options):
        """Runs an example, with the Python that runs the test; returns its status, standard output
        and standard error."""
        command = [OPTIONS.examples.resolve() / name, *arguments]
        if name.endswith(".py"):
            command.insert(0, sys.executable)
        environment = os.environ | {"QUILLMERE": OPTIONS.program} | options.pop("environment", {})
        result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, check=False,
                                env=environment, **options)
        return result.returncode, result.stdout, result.stderr

    def assert_fails(self, result, status, *words):
        """The example ended with `status`, printed nothing but a message with all these words."""
        self.assertEqual((result[0], result[1]), (status, b""), result[2])
        for word in words:
            self.assertIn(word, result[2])
        self.assertNotIn(b"Traceback", result[2])

    def write(self, name, data):
        path = self.directory / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)
        return path


def make_product(**options):
    """Has the stand-in make a catalogue for the tool, and returns the product that has it."""
    make_catalogue(OPTIONS.generator, OPTIONS.root, **options)
    return HostProduct(OPTIONS.root)


def run_tool(action, **options):
    """Runs an action of the tool, which must succeed; returns what it printed."""
    command = [OPTIONS.program, "--action", action]
    for option, value in options.items():
        command += ["--" + option, str(value)]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
