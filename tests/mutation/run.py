#!/usr/bin/env python3
"""Breaks the product in small ways, and sees whether the tests notice.

A sample is drawn from all changes that mutators.py can make. Each is made in a copy of the tree, which
is built anew, and the tests run there, the quickest ones first, until one of them is red or does not
end: the mutant is caught. A change that does not compile, or that the compiler makes the same program
of, does not count. What survives is printed as a diff. The status is 1 when fewer than --at-least
mutants were caught, and 2 when the tests are red, or don't build, without any change.
"""

import argparse
import collections
import difflib
import fnmatch
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

import mutators

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
GIB = 1 << 30
# Of ctest, with what is built for them: what tells more of the tool than its unit tests do.
STAGES = [
    ["^golden[.]", "quillmere_golden"],
    ["^fuzz[.]replay_(catalogue_file|file_entries|listing|metadata)$",
     "fuzz_catalogue_file", "fuzz_file_entries", "fuzz_listing", "fuzz_metadata"],
    ["^(faults|e2e)[.]",
     "quillmere", "quillmere_faults", "quillmere_standin", "make_catalogue", "tree_writer"],
]


class Unusable(Exception):
    """Nothing can be said of any mutant."""


class Red(Exception):
    """A stage of the tests has noticed: its number, and what it says."""


def files_of(tree):
    """The paths of a tree's files, but for its history and what was built in it."""
    for folder, names, files in os.walk(tree):
        if pathlib.Path(folder) == tree:
            names[:] = [name for name in names if name not in ("build", ".git")]
        yield from (pathlib.Path(folder, name) for name in files)


def limit_resources():
    """A change may make a loop endless; what it fills is bounded."""
    for what, amount in (
        (resource.RLIMIT_AS, 8 * GIB),
        (resource.RLIMIT_FSIZE, 2 * GIB),
        (resource.RLIMIT_CORE, 0),
    ):
        hard = resource.getrlimit(what)[1]
        resource.setrlimit(what, (amount if hard == -1 else min(amount, hard), hard))


class Copy:
    """A copy of the tree with a build of its own."""

    def __init__(self, options):
        self.options = options
        self.tree = options.work.resolve() / "tree"
        # Where it lies in the tree itself, and as that is built: a compiler cache knows most of it then.
        self.build = self.tree / "build/release"
        self.verified = -1  # the tests up to this stage are green without a change
        self.refresh()
        # Optimised, so that more of what means the same becomes the same program. A program that cannot
        # list its tests would count as not built if they were listed after building.
        self.make(
            ["cmake", "-S", self.tree, "--preset", "release"]
            + ["-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
        )
        self.verify(0)
        self.original_program = self.unit_program().read_bytes()

    def refresh(self):
        """Makes the copy the tree as it is. A file that stays the same keeps its time, for ninja."""
        wanted = set()
        for path in files_of(SOURCE):
            target = self.tree / path.relative_to(SOURCE)
            wanted.add(target)
            target.parent.mkdir(parents=True, exist_ok=True)
            if path.is_symlink():  # some lead to devices that never end
                target.unlink(missing_ok=True)
                target.symlink_to(os.readlink(path))
            elif not target.is_file() or target.read_bytes() != path.read_bytes():
                shutil.copyfile(path, target)
                shutil.copymode(path, target)
        for path in set(files_of(self.tree)) - wanted:
            path.unlink()

    def unit_program(self):
        return next(path for path in self.build.rglob(self.options.unit) if path.is_file())

    def make(self, command):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if done.returncode != 0:
            raise Unusable(done.stdout.decode(errors="replace")[-4000:])

    def make_targets(self, *targets):
        self.make(["ninja", "-C", self.build, "-j", str(self.options.jobs), *targets])

    def start(self, command, **environment):
        return subprocess.Popen(
            command, cwd=self.build, env=os.environ | environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True,
            preexec_fn=limit_resources,
        )  # fmt: skip

    @staticmethod
    def end(process):
        """Ends a process with its group, and so what it has started."""
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.communicate()

    def test(self, stage, processes, seconds):
        """Raises Red when one of the processes, which are tests, is red or doesn't end."""
        try:
            for process in processes:
                self.wait(stage, process, seconds)
        finally:
            for process in processes:
                self.end(process)

    @staticmethod
    def wait(stage, process, seconds):
        try:
            output = process.communicate(timeout=seconds)[0].decode(errors="replace")
        except subprocess.TimeoutExpired:
            raise Red(stage, "hangs") from None
        if process.returncode != 0:
            # A word is tried at its start only: some are a text of a megabyte.
            found = re.search(r"^\[  FAILED  \] (\S+)|(?<!\S)(\S+) [ .]*\*\*\*", output, re.MULTILINE)
            raise Red(stage, found[1] or found[2] if found else f"status {process.returncode}")

    def run_tests(self, last_stage):
        """Builds and runs one stage after another. The unit tests, which come first, are built."""
        limit = self.options.limit
        command = [self.unit_program(), "--gtest_fail_fast", "--gtest_brief=1"]
        parts = self.options.jobs
        self.test(0, [self.start(command, GTEST_TOTAL_SHARDS=str(parts), GTEST_SHARD_INDEX=str(part))
                      for part in range(parts)], limit)  # fmt: skip
        for number, (regex, *targets) in enumerate(self.options.stage[:last_stage], 1):
            self.make_targets(*targets)
            command = ["ctest", "-R", regex, "-j", str(self.options.jobs), "--stop-on-failure"]
            command += ["--timeout", str(limit), "--no-tests=error"]
            self.test(number, [self.start(command)], 4 * limit)

    def verify(self, stage):
        """Sees that the tests up to this stage are green without a change."""
        if stage > self.verified:
            self.make_targets(self.options.unit)
            try:
                self.run_tests(stage)
            except Red as red:
                raise Unusable(f"red without any change: {red.args[1]}") from None
            self.verified = stage

    def try_out(self, mutant):
        """Returns what has caught the mutant, "" when nothing has, and None when it does not count."""
        path = self.tree / mutant.path
        original = path.read_text()
        path.write_text(mutant.apply(original))
        red = None
        try:
            self.make_targets(self.options.unit)
            if self.unit_program().read_bytes() == self.original_program:
                return None
            self.run_tests(len(self.options.stage))
        except Unusable:
            return None
        except Red as caught:
            red = caught
        finally:
            path.write_text(original)
        if red is None:
            self.verified = len(self.options.stage)
            return ""
        self.verify(red.args[0])
        return red.args[1]


def all_mutants(patterns):
    """The mutants of all C++ files whose paths match one of the patterns, but for those in lines that
    costs.txt describes."""
    rows = [re.split(r" {2,}", line)[0] for line in (HERE / "costs.txt").read_text().splitlines()]
    costs = re.compile("|".join(f"(?:{row})" for row in rows if row and not row.startswith("#")))
    mutants = []
    for path in sorted(files_of(SOURCE)):
        name = path.relative_to(SOURCE).as_posix()
        if path.suffix in (".cpp", ".h") and any(fnmatch.fnmatch(name, pattern) for pattern in patterns):
            text = path.read_text()
            mutants += [mutant for mutant in mutators.mutants_of(name, text)
                        if not costs.search(mutant.line_of(text))]  # fmt: skip
    return mutants


def shuffled(mutants, seed):
    """Each mutant has a place of its own, so that a change elsewhere leaves most of a sample as it is."""
    seen = collections.Counter()
    places = {}
    for mutant in mutants:
        text = (SOURCE / mutant.path).read_text()
        column = mutant.begin - text.rfind("\n", 0, mutant.begin)
        change = f"{seed} {mutant.path} {mutant.line_of(text)} {column} {mutant.replacement}"
        seen[change] += 1  # the same line may come again
        places[mutant] = random.Random(f"{change} {seen[change]}").random()
    return sorted(mutants, key=places.get)


def diff(mutant):
    text = (SOURCE / mutant.path).read_text()
    lines = [each.splitlines(keepends=True) for each in (text, mutant.apply(text))]
    return "".join(difflib.unified_diff(*lines, mutant.path, mutant.path, n=1))


def title(mutant):
    text = (SOURCE / mutant.path).read_text()
    before, after = (" ".join(part.split()) for part in (text[mutant.begin : mutant.end], mutant.replacement))
    return f"{mutant.path}:{text.count(chr(10), 0, mutant.begin) + 1}: {before} => {after or '(nothing)'}"


def try_sample(copy, mutants, count):
    """Tries out the first `count` mutants that count; returns those that survived, and their number."""
    tried, survivors, position = 0, [], 0
    while tried < count and position < len(mutants):
        # File by file, so that little is built twice.
        batch = sorted(mutants[position : position + count - tried], key=lambda mutant: mutant.path)
        position += len(batch)
        for mutant in batch:
            start = time.monotonic()
            red = copy.try_out(mutant)
            if red is None:
                continue
            tried += 1
            if not red:
                survivors.append(mutant)
            seconds = time.monotonic() - start
            print(f"{tried}/{count} {seconds:.0f} s  {title(mutant)}  [{red or 'SURVIVED'}]", flush=True)
    return tried, survivors


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--seed", type=int, default=1, help="the same one draws the same sample")
    parser.add_argument("--sample", type=int, default=20, help="mutants that are tried out")
    parser.add_argument("--at-least", type=int, default=0, metavar="N", help="mutants that must be caught")
    parser.add_argument("--files", nargs="+", default=["src/*"], metavar="GLOB", help="what is broken")
    parser.add_argument("--unit", default="quillmere_unit", metavar="PROGRAM",
                        help="a GoogleTest program with all of these files, which runs first")  # fmt: skip
    parser.add_argument("--stage", nargs="+", action="append", metavar=("REGEX", "TARGET"),
                        help="tests of ctest that run next, and what is built for them; may come again. The"
                             " tool's where the unit tests are, else none")  # fmt: skip
    parser.add_argument("--limit", type=int, default=60, metavar="SECONDS",
                        help="in which the unit tests, and each test of ctest, must end; a stage gets 4 times that")  # fmt: skip
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="processes at once")
    parser.add_argument("--work", type=pathlib.Path, default=SOURCE / "build/mutants",
                        help="where the copy stays, which makes the next run start sooner")  # fmt: skip
    options = parser.parse_args()
    if options.stage is None:
        options.stage = STAGES if options.unit == parser.get_default("unit") else []

    mutants = all_mutants(options.files)
    print(f"{len(mutants)} mutants, of which {options.sample} are tried out", flush=True)
    tried, survivors = try_sample(Copy(options), shuffled(mutants, options.seed), options.sample)
    for mutant in survivors:
        print(f"\nsurvived:\n{diff(mutant)}", end="")
    caught = tried - len(survivors)
    print(f"\n{caught} of {tried} mutants were caught; {options.at_least} have to be.")
    return caught >= options.at_least


if __name__ == "__main__":
    try:
        sys.exit(0 if main() else 1)
    except Unusable as reason:
        print(f"mutation/run.py: {reason}", file=sys.stderr)
        sys.exit(2)
