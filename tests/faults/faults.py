"""What the tests of faults have in common: a small product whose commands a test can replace, and
the comparison of everything that a run of the tool leaves behind."""

import argparse
import hashlib
import os
import pathlib
import resource
import select
import shlex
import signal
import subprocess
import sys
import tempfile
import unittest

OPTIONS = argparse.Namespace()
SKIPPED = 77
TIMEOUT = 120  # seconds; a run that takes so long hangs

# In /tmp, where temporary files are without an output directory, no other run has this client.
CLIENT = f"run{os.getpid()}"
FIRST = f"{CLIENT}_1600000001"
SECOND = f"{CLIENT}_1600000002"
SET_TIME = 1600123456  # of the set of both, that of their parent image

LISTING = f"""
Backupid Taken              Files Size Schedule Policy Path
{FIRST} Sun Sep 13 2020     3 1K full P1 /x
{SECOND} Sun Sep 13 2020     2 2K full P1 /y
{CLIENT}_{SET_TIME} Tue Sep 15 2020     0 0K full P1 /z
""".encode()
METADATA = b'{"a": "b"}\n'
LOOKUP = b"1\n2\nx z\n"
ENTRY = b"1\t2\t3\t4\t5\t6\t7\t8\t9\tp\tq\n"

SET_IN_LIST = b"""        {
            "BackupCreateTime": "1600123456",
            "BackupSize": "3072"
        }"""
ENTRY_IN_DOCUMENT = b"""        {
            "filenum": "1",
            "length": "2",
            "plength": "3",
            "dlength": "4",
            "blknum": "5",
            "in_image": "6",
            "raw_partition_sz": "7",
            "gigabytes": "8",
            "device_num": "9",
            "path": "p",
            "data": "q"
        }"""


def set_list(sets=1):
    """The document of so many sets like the one that is listed."""
    return b'{\n    "backup_sets": [\n' + b",\n".join([SET_IN_LIST] * sets) + b"\n    ]\n}\n"


def document(entries=1):
    """The document of an image with so many entries."""
    items = b",\n".join([ENTRY_IN_DOCUMENT] * entries)
    return b'{\n    "a": "b",\n    "fentries": [\n' + items + b"\n    ]\n}\n"


EMPTY_SET_LIST = b'{\n    "backup_sets": ""\n}\n'
DOCUMENT_WITHOUT_ENTRIES = b'{\n    "a": "b",\n    "fentries": ""\n}\n'

LIST = ["--action", "list_backups"]
SET_LIST = ["--action", "dump_backup_set_list"]
SET = ["--action", "dump_backup_set", "--time", str(SET_TIME)]
IMAGE = ["--action", "dump_backup", "--backup_id", FIRST]


def uncaught_json_error(message):
    """What stands on standard error when the JSON reader or writer ends the process."""
    return (
        "terminate called after throwing an instance of"
        " 'boost::wrapexcept<boost::property_tree::json_parser::json_parser_error>'\n"
        f"  what():  {message}\n"
    ).encode()


def short(value):
    """`value` with long texts by their beginning, size and hash: unittest takes minutes to say where
    two long ones differ."""
    if isinstance(value, dict):
        return {key: short(item) for key, item in value.items()}
    if isinstance(value, bytes) and len(value) > 4000:
        return f"{value[:200]} and so on, {len(value)} bytes, {hashlib.sha256(value).hexdigest()}"
    return value


def content(path):
    """What stands at `path`, in a form that tells a file from a folder, a link and a pipe."""
    if path.is_symlink():
        return f"link to {os.readlink(path)}"
    if path.is_dir():
        return "folder"
    return "pipe" if path.is_fifo() else path.read_bytes()


class FaultTest(unittest.TestCase):
    """Each test has a folder of its own, `folder`, with an output directory `out` in it."""

    maxDiff = 4000
    environment = {"LC_ALL": "C"}

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="faults-")
        self.addCleanup(directory.cleanup)
        self.folder = pathlib.Path(directory.name).resolve()
        self.out = self.folder / "out"
        self.out.mkdir()
        self.to_out = ["--output_dir", str(self.out)]
        self.scripts = {
            "listing": self.prints(LISTING),
            "qvmeta": self.prints(METADATA),
            "lookup": self.prints(LOOKUP),
            "rec_unfold": self.prints(ENTRY),
        }

    def prints(self, text):
        """The line of a script that prints `text`."""
        if len(text) < 4096:
            return f"printf %s {shlex.quote(text.decode())}\n"  # takes no process
        number, path = tempfile.mkstemp(dir=self.folder)
        with open(number, "wb") as file:
            file.write(text)
        return f"cat {path}\n"

    def limits_tool(self, limit):
        """The line of a script that gives the tool, which is running, the limit of prlimit."""
        return f'prlimit --{limit} --pid="$(cat {self.folder}/pid)"\n'

    def path_of(self, command):
        folder = "bin" if command == "rec_unfold" else "bin/admincmd"
        return pathlib.Path(OPTIONS.root) / folder / command

    def install(self):
        """Puts the scripts where the tool looks for the commands."""
        scripts = dict(self.scripts)
        listing, lookup = scripts.pop("listing"), scripts.pop("lookup")
        scripts["qvroll"] = f'if [ "$1" = -id ]; then\n{lookup}else\n{listing}fi\n'
        for command, script in scripts.items():
            path = self.path_of(command)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(f"#!/bin/sh\n{script}")
            path.chmod(0o755)
            self.addCleanup(path.unlink, missing_ok=True)

    def start(self, arguments, *, under=(), limits=None, ignored=(), stdout=subprocess.PIPE):
        """Starts the tool, run by the command `under`, with resource limits and ignored signals."""

        def prepare():
            (self.folder / "pid").write_text(str(os.getpid()))
            for number in ignored:
                signal.signal(number, signal.SIG_IGN)
            for limit, value in (limits or {}).items():
                resource.setrlimit(limit, (value, value))

        process = subprocess.Popen(
            [*under, OPTIONS.program, *arguments],
            stdin=subprocess.DEVNULL,
            stdout=stdout,
            stderr=subprocess.PIPE,
            env={**os.environ, **self.environment},
            preexec_fn=prepare,
            start_new_session=True,
        )
        self.addCleanup(self.dispose, process)
        return process

    @staticmethod
    def dispose(process):
        for stream in filter(None, (process.stdout, process.stderr)):
            stream.close()
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()

    @staticmethod
    def read(process, size):
        """The next `size` bytes that the tool prints, as far as they come."""
        text = b""
        while len(text) < size and select.select([process.stdout], [], [], 10)[0]:
            piece = os.read(process.stdout.fileno(), size - len(text))
            if not piece:
                break
            text += piece
        return text

    def check(self, process, *, status="0", stdout=b"", stderr=b"", files=None):
        """Waits for the tool and its commands, and compares the end of the tool, what it printed,
        and all that is in the output directory."""
        printed, diagnostics = process.communicate(timeout=TIMEOUT)
        ended = process.returncode
        in_tmp = list(pathlib.Path("/tmp").glob(f"{CLIENT}_*"))
        actual = {
            "status": signal.Signals(-ended).name if ended < 0 else str(ended),
            "stdout": printed or b"",
            "stderr": diagnostics,
            "files": {path.name: content(path) for path in self.out.iterdir()},
            "files in /tmp": {path.name: content(path) for path in in_tmp},
        }
        for path in in_tmp:
            path.unlink()
        files = files or {}
        expected = {
            "status": status,
            "stdout": stdout,
            "stderr": stderr,
            "files": {name: what for name, what in files.items() if not name.startswith("/tmp/")},
            "files in /tmp": {
                name.removeprefix("/tmp/"): what
                for name, what in files.items()
                if name.startswith("/tmp/")
            },
        }
        self.assertEqual(short(expected), short(actual))

    def check_run(self, arguments, *, under=(), limits=None, ignored=(), **expected):
        """Runs the tool and compares what comes of it."""
        self.install()
        process = self.start(arguments, under=under, limits=limits, ignored=ignored)
        self.check(process, **expected)


class Gate:
    """A place at which a script waits, where `line` stands in it."""

    def __init__(self, test):
        folder = tempfile.mkdtemp(dir=test.folder)
        here, go = f"{folder}/here", f"{folder}/go"
        self.here, self.go = (self.open_pipe(path, test) for path in (here, go))
        self.line = f"echo here >{here}\nread -r _ <{go}\n"

    @staticmethod
    def open_pipe(path, test):
        """Opens it for both directions, so that no open waits for another."""
        os.mkfifo(path)
        descriptor = os.open(path, os.O_RDWR)
        test.addCleanup(os.close, descriptor)
        return descriptor

    def wait(self):
        """Waits until the script is there."""
        if not select.select([self.here], [], [], TIMEOUT)[0]:
            raise AssertionError("the command was not started")
        os.read(self.here, 100)

    def open(self):
        """Lets the script go on."""
        os.write(self.go, b"\n")


def main(description):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--program", required=True, help="the tool")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    _, rest = parser.parse_known_args(namespace=OPTIONS)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    # Whoever started the tests may ignore signals, as a shell does for what it runs in the
    # background, and the tool would inherit that.
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)
    unittest.main(module="__main__", argv=[sys.argv[0], *rest], verbosity=2)
