#!/usr/bin/env python3
"""What the documents tell developers to run is there: each script and its options, presets, targets, and
each test that is named. What they tell users is run, by the tests in RUN_BY.

    documents_test.py SOURCE BUILD"""

import fnmatch
import glob
import json
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "packages"))
from links_test import documents

SOURCE, BUILD = map(pathlib.Path, sys.argv[1:3])
# Whose blocks hold commands for users, and which tests run those.
RUN_BY = {
    "README.md": "cli.console_examples",
    "docs/archive.md": "cli.console_examples",
    "docs/consumers.md": "cli.roads_for_consumers",
    "docs/documents.md": "schemas.page",
    "docs/operations.md": "cli.operations_guide",
    "examples/clickhouse/README.md": "databases.hold_and_answer_the_same",
    "examples/sqlite/README.md": "databases.hold_and_answer_the_same",
    "man/quillmere-archive.1": "cli.console_examples",
    "man/quillmere-report.1": "cli.console_examples",
    "man/quillmere.1": "cli.console_examples",
    "standin/README.md": "standin.readme_can_be_followed",
}
# Whose blocks hold commands for developers, or none.
OTHERS = {"ARCHITECTURE.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md", "bench/README.md",
          "docs/samples/README.md", "examples/README.md", "tests/README.md", "tests/faults/README.md",
          "tests/fuzz/README.md", "tests/golden/README.md", "tests/mutation/README.md"}
SCRIPT = re.compile(r"(\./)?(\.ci|bench|packaging|report|scripts|tests)/[\w./-]+")
CASE = re.compile(r"(cli|dump|list|setlist|streams)-[a-z0-9*-]+")  # of the golden cases
PLACEHOLDER = re.compile(r"(?<![A-Za-z])[A-Z]{2,}\b")
# Registered in some builds only.
SOME_TESTS = {"guard.instructions"}


def read(path):
    return (SOURCE / path).read_text(encoding="utf-8")


def all_tests():
    """The tests of the build, listed elsewhere: the log of those that run is in it."""
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "CTestTestfile.cmake").write_text(f'subdirs("{BUILD}")\n', encoding="utf-8")
        listed = subprocess.run(["ctest", "--test-dir", folder, "-N"], check=True, stdout=subprocess.PIPE,
                                text=True).stdout
    return set(re.findall(r"^ +Test +#\d+: (\S+)$", listed, re.MULTILINE))


def code(document):
    """The lines of a document's blocks, without what is fenced in another language than the shell's, and
    its spans."""
    text = re.sub(r"^ *```(?!sh$)\w+\n.*?^ *```$", "", read(document), flags=re.DOTALL | re.MULTILINE)
    block = re.compile(r"^(?: {4}|(?=\./|build/))(.*)$", re.MULTILINE)
    return block.findall(text) + re.findall(r"`([^`\n]+)`", block.sub("", text))


def commands(document):
    """The words of each command in a document's code."""
    for line in code(document):
        line = line.replace("\\|", "|").removeprefix("$ ").removeprefix("# ")
        if SCRIPT.match(line) or re.match(r"(cmake|ctest|cpack|build/\S+|\w+=.* ctest|rec_unfold) ", line):
            for part in re.split(r" (?:&&|\|) ", line):
                words = shlex.split(part, comments=True)
                yield words[1:] if "=" in words[0] else words


class Documents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.names = {str(path.relative_to(SOURCE)) for path in documents(SOURCE)}
        cls.names |= {str(path.relative_to(SOURCE)) for path in (SOURCE / "man").iterdir()}
        cls.tests = all_tests() | SOME_TESTS
        cls.targets = set(re.findall(r"^build ([\w-]+): ", (BUILD / "build.ninja").read_text(encoding="utf-8"),
                                     re.MULTILINE))
        cls.presets = json.loads(read("CMakePresets.json"))
        cls.build_rules = "".join(path.read_text(encoding="utf-8") for path in
                                  (SOURCE / "CMakeLists.txt", *SOURCE.glob("*/**/CMakeLists.txt")))

    def test_no_document_is_left_out(self):
        self.assertEqual(self.names, RUN_BY.keys() | OTHERS)
        self.assertEqual(set(RUN_BY.values()) - self.tests, set())

    def test_what_developers_run_is_there(self):
        found = 0
        for name in sorted(self.names):
            for words in commands(name):
                found += 1
                with self.subTest(f"{name}: {words}"):
                    self.check_command(pathlib.Path(name).parent, words)
        self.assertGreater(found, 40)

    def check_command(self, folder, words):
        program, *arguments = words
        if program == "cmake":
            self.check_cmake(arguments)
        elif program == "ctest":
            self.check_preset("testPresets", arguments)
            for pattern in following(arguments, "-R"):
                if not PLACEHOLDER.search(pattern):
                    self.assertTrue(any(re.search(pattern, test) for test in self.tests))
        elif program.startswith("build/"):
            self.assertTrue(PLACEHOLDER.search(program) or pathlib.Path(program).name in self.build_rules)
        elif SCRIPT.match(program):
            self.check_script(program, arguments)
        elif program != "cpack":  # one that is not ours, which may run what is
            for word in filter(re.compile(r"\w+/[\w/]+\.\w+").fullmatch, arguments):
                self.assertTrue((SOURCE / folder / word).exists())

    def check_cmake(self, arguments):
        self.check_preset("buildPresets" if "--build" in arguments else "configurePresets", arguments)
        if "--target" in arguments:
            self.assertEqual(set(arguments[arguments.index("--target") + 1:]) - self.targets, set())
        for variable in re.findall(r"^-D(\w+)=", "\n".join(arguments), re.MULTILINE):
            self.assertRegex(self.build_rules, rf"(option|set)\({variable}\b")

    def check_preset(self, kind, arguments):
        self.assertLessEqual(set(following(arguments, "--preset")),
                             {preset["name"] for preset in self.presets[kind]})

    def check_script(self, script, arguments):
        found = glob.glob(str(SOURCE / script))
        self.assertEqual(len(found), 1)
        script = pathlib.Path(found[0])
        text = "" if script.is_dir() else script.read_text(encoding="utf-8")
        if text.startswith("#!"):
            self.assertTrue(script.stat().st_mode & 0o100)
        for word in arguments:
            if re.fullmatch("--?[a-z-]+", word):
                self.assertTrue(re.search(rf"(?<![\w-]){word}(?![\w-])", text), word)
            elif script.match("scripts/test.sh"):
                self.check_preset("testPresets", ["--preset", word])
            elif script.match("fuzz/run.sh") and not word.isdigit():
                self.assertTrue((SOURCE / "tests/fuzz/corpus" / word).is_dir())

    def test_tests_that_are_named_are_there(self):
        kinds = "|".join({test.partition(".")[0] for test in self.tests} - {"archive", "unit"})
        found = 0
        for name in sorted(self.names):
            for span in code(name):
                patterns = [span] if re.fullmatch(rf"({kinds})\.[a-z][\w*-]+", span) else []
                if CASE.fullmatch(span) and name.startswith("tests/"):
                    patterns = [f"golden.{span}", f"realroot.{span}"]
                if re.fullmatch(r"[A-Z]\w+\.[A-Z]\w+", span):
                    patterns = [f"*.{span}"]
                if patterns:
                    found += 1
                    self.assertTrue(any(fnmatch.filter(self.tests, one) for one in patterns), f"{name}: {span}")
        self.assertGreater(found, 50)


def following(arguments, option):
    return [value for before, value in zip(arguments, arguments[1:]) if before == option]


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
