#!/usr/bin/env python3
"""The linked program has each protection that packaging/hardening.cmake is there for.

What can be seen in the file is looked for in the file. What cannot, because this program has no code
that would show it, is shown by a probe that is built in the same way, and every unit of the program
must have been compiled with the flags.
"""

import argparse
import json
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import unittest

OPTIONS = argparse.Namespace()
SKIPPED = 77
# Functions of the program with locals that can be overrun.
PROTECTED = ("GetBackupImageList", "GetBackupSetList", "dump_backup", "dump_backup_set",
             "dump_backup_set_list", "list_backups")


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def readelf(*options):
    return output("readelf", "--wide", *options, OPTIONS.program)


def segments():
    """The flags of each segment, by the kinds of segments."""
    found = {}
    for line in readelf("--program-headers").splitlines():
        if match := re.match(r" +([A-Z_]+) +(?:0x\w+ +){5}([RWE ]{3}) ", line):
            found.setdefault(match[1], set()).add(match[2].replace(" ", ""))
    return found


def dynamic_entries():
    """The values of each dynamic entry, by the kinds of entries."""
    found = {}
    for kind, value in re.findall(r"\((\w+)\) +(.*)", readelf("--dynamic")):
        found.setdefault(kind, []).append(value)
    return found


class Program(unittest.TestCase):
    def test_its_address_is_random(self):
        self.assertRegex(readelf("--file-header"), r"Type: +DYN ")
        self.assertIn("PIE", " ".join(dynamic_entries()["FLAGS_1"]).split())

    def test_it_is_linked_as_it_should_be(self):
        is_static = OPTIONS.linked == "statically"
        self.assertEqual("INTERP" not in segments(), is_static)
        self.assertEqual("NEEDED" not in dynamic_entries(), is_static)

    def test_foreign_functions_are_found_at_the_start_and_read_only_from_then_on(self):
        self.assertEqual(segments().get("GNU_RELRO"), {"R"})
        flags = " ".join(dynamic_entries().get("FLAGS", []) + dynamic_entries()["FLAGS_1"]).split()
        self.assertTrue({"BIND_NOW", "NOW"} & set(flags), flags)

    def test_the_stack_is_not_executable(self):
        self.assertEqual(segments().get("GNU_STACK"), {"RW"})

    def test_no_memory_is_both_writable_and_executable(self):
        for kind, flags in segments().items():
            self.assertNotIn("RWE", flags, kind)
        self.assertNotIn("TEXTREL", dynamic_entries())

    def test_libraries_are_looked_for_nowhere_but_in_the_system(self):
        self.assertFalse({"RPATH", "RUNPATH"} & dynamic_entries().keys())

    def test_its_own_functions_check_their_frames(self):
        unprotected = set(PROTECTED)
        listing = output("objdump", "--disassemble", "--demangle", "--no-show-raw-insn",
                         OPTIONS.program)
        for name, body in re.findall(r"^[0-9a-f]+ <(\w+)\(.*>:\n((?:.+\n)*)", listing, re.MULTILINE):
            if "__stack_chk_fail" in body:
                unprotected.discard(name)
        self.assertEqual(unprotected, set())

    def test_it_runs_on_linux_3_10_and_on_any_processor_of_its_architecture(self):
        notes = readelf("--notes")
        version = re.search(r"OS: Linux, ABI: (\d+)\.(\d+)\.", notes)
        self.assertLessEqual((int(version[1]), int(version[2])), (3, 10))
        for level in re.findall(r"x86 ISA needed: (.*)", notes):
            self.assertEqual(level, "x86-64-baseline")

    def test_it_does_not_tell_where_it_was_built(self):
        if not OPTIONS.fortified:
            self.skipTest("a debugger has to find the sources")
        folder = f"{OPTIONS.compile_commands.parent.resolve()}/".encode()
        source = f"{pathlib.Path(__file__).resolve().parents[2]}/".encode()
        content = pathlib.Path(OPTIONS.program).read_bytes()
        self.assertNotIn(folder, content)
        self.assertNotIn(source, content)

    def test_it_runs(self):
        self.assertTrue(output(OPTIONS.program, "--help").startswith("Usage:\n"))


class Units(unittest.TestCase):
    def test_each_is_compiled_with_the_flags(self):
        flags = {"-fPIE", "-fstack-protector-strong"}
        if OPTIONS.fortified:
            flags.add("-D_FORTIFY_SOURCE=2")
        folders = ("quillmere_core.dir", "quillmere_main.dir", "quillmere.dir")
        units = set()
        for entry in json.loads(OPTIONS.compile_commands.read_text()):
            words = entry["command"].split()
            target = pathlib.PurePath(words[words.index("-o") + 1]).parts
            if any(folder in target for folder in folders):
                units.add(pathlib.PurePath(entry["file"]).name)
                self.assertEqual(flags - set(words), set(), entry["file"])
        self.assertLessEqual({"main.cpp", "layout.cpp", "command_output.cpp"}, units)


class Probe(unittest.TestCase):
    LONG = "x" * 256

    def run_probe(self, what, text):
        command = [OPTIONS.probe, what, text]
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        return result.returncode, result.stderr

    def test_it_runs(self):
        self.assertEqual(self.run_probe("copy", "short"), (0, ""))
        self.assertEqual(self.run_probe("stack", "x"), (0, ""))

    def test_a_copy_that_is_too_long_ends_the_process(self):
        if not OPTIONS.fortified:
            self.skipTest("needs the optimiser")
        self.assertEqual(self.run_probe("copy", self.LONG),
                         (-signal.SIGABRT, "*** buffer overflow detected ***: terminated\n"))

    def test_a_frame_that_was_overrun_ends_the_process(self):
        self.assertEqual(self.run_probe("stack", self.LONG),
                         (-signal.SIGABRT, "*** stack smashing detected ***: terminated\n"))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the tool, not stripped")
    parser.add_argument("--probe", required=True, help="hardening_probe, linked in the same way")
    parser.add_argument("--linked", required=True, choices=("dynamically", "statically"))
    parser.add_argument("--compile-commands", required=True, type=pathlib.Path)
    parser.add_argument("--fortified", action="store_true", help="the build is an optimised one")
    parser.parse_args(namespace=OPTIONS)
    for tool in ("readelf", "objdump"):
        if shutil.which(tool) is None:
            print(f"skipped: there is no {tool}")
            sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
