#!/usr/bin/env python3
"""Breaks the product in each way that mutants.txt lists, and sees whether the fast tests notice.

Each change is made in a copy of the tree, where quillmere_unit and then the golden cases run until
one of them is red. A summary for each unit follows, and what survived. The status is 0 when the
tests caught 98 % and each survivor is explained in the list, 1 otherwise, and 2 when a change could
not be tried: its fragment is not in the source as listed, the result does not compile, or the tests
are red without any change.
"""

import argparse
import collections
import concurrent.futures
import fnmatch
import os
import pathlib
import queue
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
REQUIRED = 98  # percent
GIB = 1 << 30
ADDRESS_SPACE = 4 * GIB  # a change may make a loop endless; what it fills is bounded
FILE_SIZE = GIB // 4
# The suites of a unit are named after its file. These have others besides.
MORE_SUITES = {
    "backup_sets": ["SizeText"],
    "image_list": ["ImageRow"],
    "metadata": ["UndoublePercents"],
}


class Unusable(Exception):
    """A change cannot be tried."""


class Mutant:
    """One change of one file, and why no test can notice it, if none can."""

    def __init__(self, path, line_number):
        self.path = path
        self.line_number = line_number
        self.parts = {"-": [], "+": [], "=": []}
        self.which = (1, 1)  # the first of one occurrence

    def explanation(self):
        return " ".join(self.parts["="])

    def title(self):
        before, after = (" ".join("\n".join(self.parts[part]).split()) for part in "-+")
        return f"{self.path}: {before} => {after or '(nothing)'}"

    def problem(self):
        """Why the list does not fit the source; nothing when it does."""
        before, after = ("\n".join(self.parts[part]) for part in "-+")
        number, count = self.which
        found = (SOURCE / self.path).read_text().count(before) if before else 0
        if before != after and found == count and 1 <= number <= count:
            return ""
        return f"mutants.txt:{self.line_number}: {found} occurrences: {self.title()}"

    def apply(self, text):
        before, after = ("\n".join(self.parts[part]) for part in "-+")
        pieces = text.split(before)
        number = self.which[0]
        return before.join(pieces[:number]) + after + before.join(pieces[number:])


def read_mutants(path):
    """README.md describes the format."""
    mutants, file, mutant = [], None, None
    for number, line in enumerate(path.read_text().split("\n"), 1):
        mark, rest = line[:1], line[2:]
        if mark == "@":
            file, mutant = rest, None
        elif mark in ("", "#"):
            mutant = None
        elif line[1:2] in ("", " ") and mark in "-+=%" and file:
            if mutant is None:
                mutant = Mutant(file, number)
                mutants.append(mutant)
            if mark == "%":
                mutant.which = tuple(int(word) for word in re.fullmatch(r"(\d+) of (\d+)", rest).groups())
            else:
                mutant.parts[mark].append(rest)
        else:
            raise Unusable(f"mutants.txt:{number}: {line!r} is no part of a mutant")
    return mutants


def refresh(copy):
    """Makes `copy` the tree as it is. A file that stays the same keeps its time, for ninja."""
    wanted = set()
    for folder, names, files in os.walk(SOURCE):
        if pathlib.Path(folder) == SOURCE:
            names[:] = [name for name in names if name not in ("build", ".git")]
        for name in files:
            path = pathlib.Path(folder, name)
            target = copy / path.relative_to(SOURCE)
            wanted.add(target)
            target.parent.mkdir(parents=True, exist_ok=True)
            if path.is_symlink():  # some lead to devices that never end
                target.unlink(missing_ok=True)
                target.symlink_to(os.readlink(path))
            elif not target.is_file() or target.read_bytes() != path.read_bytes():
                shutil.copyfile(path, target)
                shutil.copymode(path, target)
    for path in copy.rglob("*"):
        if not path.is_dir() and path not in wanted:
            path.unlink()


def limit_resources():
    for what, amount in (
        (resource.RLIMIT_AS, ADDRESS_SPACE),
        (resource.RLIMIT_FSIZE, FILE_SIZE),
        (resource.RLIMIT_CORE, 0),
    ):
        hard = resource.getrlimit(what)[1]
        resource.setrlimit(what, (amount if hard == -1 else min(amount, hard), hard))


class Worker:
    """A copy of the tree with a build of its own."""

    def __init__(self, folder, processes, seconds):
        self.tree = folder / "tree"
        self.build = folder / "build"
        self.processes = str(processes)
        self.seconds = seconds  # in which a test program must end; it takes a few

    def prepare(self):
        refresh(self.tree)
        # Optimised a little: compiling takes as long, and the tests a third of the time.
        self.succeed(
            ["cmake", "-G", "Ninja", "-S", self.tree, "-B", self.build, "-DCMAKE_BUILD_TYPE=Debug"]
            + ["-DCMAKE_CXX_FLAGS=-O1 -g0 -D_GLIBCXX_ASSERTIONS"]
            + [f"-DPython3_EXECUTABLE={sys.executable}"]
            # Else a program that cannot list its tests counts as not built.
            + ["-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
        )
        self.compile("quillmere_unit", "quillmere_golden")
        red = self.red_test("*")
        if red:
            raise Unusable(f"red without any change: {red}")

    def succeed(self, command):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if done.returncode != 0:
            raise Unusable(done.stdout.decode(errors="replace")[-4000:])

    def compile(self, *targets):
        self.succeed(["ninja", "-C", self.build, "-j", self.processes, *targets])

    def test(self, command, seconds):
        """Returns the output if the tests are red, "hangs" if they don't end, else nothing."""
        process = subprocess.Popen(
            command, cwd=self.build, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, start_new_session=True, preexec_fn=limit_resources,
        )  # fmt: skip
        try:
            output = process.communicate(timeout=seconds)[0].decode(errors="replace")
            return output or "ends without a word" if process.returncode != 0 else ""
        except subprocess.TimeoutExpired:
            return "hangs"
        finally:
            # A process group of its own, so that what it started ends too.
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.communicate()

    def unit_tests(self, choice):
        program = self.build / "tests/unit/quillmere_unit"
        command = [program, "--gtest_fail_fast", "--gtest_brief=1", f"--gtest_filter={choice}"]
        output = self.test(command, self.seconds)
        found = re.search(r"^\[  FAILED  \] (\S+)", output, re.M)
        return found[1] if found else output[-200:]

    def golden_cases(self):
        command = ["ctest", "-j", self.processes, "-R", "^golden[.]", "--stop-on-failure"]
        output = self.test(command + ["--no-tests=error"], 20 * self.seconds)
        found = re.search(r"(golden\S+) [ .]*\*\*\*", output)
        return found[1] if found else output[-200:]

    def red_test(self, suites):
        """The first red test, the nearest ones first; "" when all are green."""
        red = self.unit_tests(suites)
        if not red and suites != "*":
            red = self.unit_tests(f"*-{suites}")
        if not red:
            self.compile("quillmere_golden")
            red = self.golden_cases()
        return red

    def try_out(self, mutant):
        path = self.tree / mutant.path
        original = path.read_text()
        stem = path.stem
        names = [stem.title().replace("_", "")] + MORE_SUITES.get(stem, [])
        path.write_text(mutant.apply(original))
        try:
            self.compile("quillmere_unit")
            return self.red_test(":".join(f"{name}*.*" for name in names))
        finally:
            path.write_text(original)


def work(worker, files, report, unusable):
    """Tries out the mutants of one file after another, so that little is compiled anew."""
    worker.prepare()
    while True:
        try:
            mutants = files.get_nowait()
        except queue.Empty:
            return
        for mutant in mutants:
            start = time.monotonic()
            try:
                report(mutant, worker.try_out(mutant), time.monotonic() - start)
            except Unusable as reason:
                unusable.append(f"{mutant.title()}\n{reason}")


def summarise(results):
    """Prints the table and the survivors; returns whether that is good enough."""
    units = collections.defaultdict(lambda: [0, 0])
    for mutant, red in results:
        unit = os.path.splitext(mutant.path)[0]
        units[unit][0] += 1
        units[unit][1] += bool(red)
    print(f"\n{'unit':32} mutants caught survived")
    for unit, (count, caught) in sorted(units.items()):
        print(f"{unit:32} {count:7} {caught:6} {count - caught:8}")
    caught = sum(bool(red) for _, red in results)
    print(f"{'all':32} {len(results):7} {caught:6} {len(results) - caught:8}")
    good = 100 * caught >= REQUIRED * len(results)
    for mutant, red in results:
        why = mutant.explanation()
        if not red:
            print(f"survived: {mutant.title()}\n    {why or 'unexplained: a test is missing'}")
        elif why:
            print(f"caught, so the explanation is wrong: {mutant.title()}\n    by {red}")
        good = good and bool(red) != bool(why)
    return good


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--unit", default="*", metavar="PATTERN", help="such as src/export/*")
    parser.add_argument("--jobs", type=int, default=2, help="copies that are worked on at once")
    parser.add_argument("--list", action="store_true", help="only print the mutants that apply")
    parser.add_argument("--work", type=pathlib.Path, default=SOURCE / "build/mutation",
                        help="where the copies stay for the next time")  # fmt: skip
    parser.add_argument("--timeout", type=int, default=90, metavar="SECONDS",
                        help="in which the unit tests must end; the golden cases get 20 times as long")  # fmt: skip
    options = parser.parse_args()

    mutants = read_mutants(HERE / "mutants.txt")
    stale = [problem for mutant in mutants if (problem := mutant.problem())]
    if stale:
        raise Unusable("\n".join(stale))
    mutants = [mutant for mutant in mutants if fnmatch.fnmatch(mutant.path, options.unit)]
    if not mutants:
        raise Unusable(f"no mutant of {options.unit}")
    if options.list:
        print("\n".join(mutant.title() for mutant in mutants))
        return True

    os.nice(10)
    by_file = collections.defaultdict(list)
    for mutant in mutants:
        by_file[mutant.path].append(mutant)
    files = queue.SimpleQueue()
    for group in sorted(by_file.values(), key=len, reverse=True):
        files.put(group)
    results, unusable = [], []

    def report(mutant, red, seconds):
        results.append((mutant, red))
        end = red.strip().split("\n")[-1] if red else "SURVIVED"
        print(f"{len(results)}/{len(mutants)} {seconds:.0f} s  {mutant.title()}  [{end}]", flush=True)

    processes = max(1, (os.cpu_count() or 1) // options.jobs)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        workers = [
            Worker(options.work.resolve() / str(i), processes, options.timeout) for i in range(options.jobs)
        ]
        running = [pool.submit(work, worker, files, report, unusable) for worker in workers]
        for future in running:
            future.result()
    good = summarise(results)
    if unusable:
        raise Unusable("\n".join(unusable))
    return good


if __name__ == "__main__":
    try:
        sys.exit(0 if main() else 1)
    except Unusable as reason:
        print(f"mutation/run.py: {reason}", file=sys.stderr)
        sys.exit(2)
