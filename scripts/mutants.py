#!/usr/bin/env python3
"""Breaks the code on purpose, one break at a time, and sees a test fail for each of them.

The breaks are data, tests/mutants/ROOM.json, see tests/mutants/README.md. They are applied in a copy of the tree,
which is built beside it and kept for the next run: a break costs what it recompiles, a link and its test. The exit
status is 0 when all of them were caught: what no test can see says why not instead, as "harmless".

usage: mutants.py [--room NAME] [--only N] [--build DIR] [--jobs N]   runs them
       mutants.py --check [--build DIR]                               only sees that all of them still apply
"""

import argparse
import collections
import dataclasses
import fcntl
import fnmatch
import functools
import json
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
# A test that takes so much longer than without a break, and so many seconds at least, hangs.
PATIENCE, PATIENCE_SECONDS = 10, 30
CAUGHT, SURVIVED, STALE, UNBUILT, UNSOUND = (
    "caught", "SURVIVED", "DOES NOT APPLY", "DOES NOT BUILD", "FAILS WITHOUT IT")
RESULTS = (CAUGHT, SURVIVED, STALE, UNBUILT, UNSOUND)


class Mistake(Exception):
    """In the lists or on the command line."""


@dataclasses.dataclass(frozen=True)
class Break:
    room: str
    number: int  # in the room's list, from 1 on
    file: str
    search: str  # stands in the file exactly once
    replace: str
    why: str  # what is wrong then; for one that no test sees, why nothing is
    test: str | None  # PROGRAM FILTER, or: ctest REGEX; none where the break changes nothing

    def __str__(self):
        return f"{self.room} {self.number} ({self.file})"

    def applied(self, text):
        """The text with the break in it; None when the break does not apply."""
        return text.replace(self.search, self.replace) if text.count(self.search) == 1 else None


def load(root):
    """All breaks, by room and number."""
    breaks = []
    for path in sorted((root / "tests/mutants").glob("*.json")):
        try:
            rows = json.loads(path.read_text())
            breaks += [parsed(path.stem, number, row) for number, row in enumerate(rows, 1)]
        except (ValueError, TypeError) as wrong:
            raise Mistake(f"{path.relative_to(root)}: {wrong}") from wrong
    if not breaks:
        raise Mistake("tests/mutants/ has no breaks")
    first = {}
    for b in breaks:
        if b is not (same := first.setdefault((b.file, b.search, b.replace), b)):
            raise Mistake(f"{b} is {same} once more")
    return breaks


def parsed(room, number, row):
    if not isinstance(row, dict) or not all(isinstance(text, str) for text in row.values()):
        raise ValueError(f"break {number} is not a set of texts")
    wanted = {"file", "search", "replace"}
    # What changes nothing has no test, and says why it changes nothing.
    about = {"harmless"} if "harmless" in row else {"test", "why"}
    if set(row) != wanted | about:
        raise ValueError(f"break {number} has {sorted(row)} instead of {sorted(wanted | about)}")
    if not all(row[key].strip() for key in {"file", "search"} | about):
        raise ValueError(f"break {number} has an empty text")
    if row["search"] == row["replace"]:
        raise ValueError(f"break {number} replaces a text by itself")
    if "test" in row and len(row["test"].split()) != 2:
        raise ValueError(f"break {number} names no test: {row['test']}")
    return Break(room, number, row["file"], row["search"], row["replace"], row.get("why") or row["harmless"],
                 row.get("test"))


class Tests:
    """The tests of a build folder."""

    def __init__(self, build):
        self.build = build

    def command(self, test):
        """What runs a test."""
        program, which = test.split()
        if program == "ctest":
            return ["ctest", "--test-dir", str(self.build), "-R", which, "--no-tests=error", "--output-on-failure"]
        return [str(self.build / "bin" / program), f"--gtest_filter={which}", "--gtest_fail_fast"]

    def targets(self, test):
        """What has to be built for it: of a test known to ctest, the programs that its command names."""
        program, which = test.split()
        if program != "ctest":
            return {program}
        made = self.build / "bin"
        words = [pathlib.Path(word) for t in self.of_ctest(which) for word in t.get("command", [])]
        return {word.name for word in words if word.parent == made}

    def exists(self, test):
        program, which = test.split()
        if program == "ctest":
            return bool(self.of_ctest(which))
        wanted, _, unwanted = which.partition("-")
        matches = lambda name, patterns: any(fnmatch.fnmatchcase(name, p) for p in patterns.split(":"))
        return any(matches(name, wanted or "*") and not matches(name, unwanted) for name in self.of_program(program))

    @functools.cache
    def of_ctest(self, regex):
        return json.loads(output(["ctest", "--test-dir", self.build, "--show-only=json-v1", "-R", regex]))["tests"]

    @functools.cache
    def of_program(self, program):
        path = self.build / "bin" / program
        if not path.exists():
            raise Mistake(f"{path} is not built")
        names, suite = [], ""
        for line in output([path, "--gtest_list_tests"]).splitlines():
            name = line.partition("#")[0].strip()
            if line.startswith(" "):
                names.append(suite + name)
            else:
                suite = name
        return names


def output(command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        raise Mistake(f"{shlex.join(map(str, command))} failed:\n{done.stdout}")
    return done.stdout


def check(root, build):
    """What is wrong with the lists, without building anything: a line for each."""
    tests, wrong = Tests(build), []
    for b in load(root):
        path = root / b.file
        times = path.read_text().count(b.search) if path.is_file() else None
        if times is None:
            wrong.append(f"{b}: there is no such file")
        elif times != 1:
            wrong.append(f"{b}: the text is there {times} times: {b.search}")
        if b.test and not tests.exists(b.test):
            wrong.append(f"{b}: there is no such test: {b.test}")
    return wrong


class Copy:
    """A copy of the tree, for one run at a time, with a build of its own."""

    def __init__(self, root, folder, jobs):
        self.root, self.tree, self.build_folder, self.jobs = root, folder / "tree", folder / "build", jobs
        self.log = folder / "log.txt"
        self.tree.mkdir(parents=True, exist_ok=True)
        self.lock = open(folder / "lock", "w")
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError as busy:
            self.lock.close()
            raise Mistake(f"another run is using {folder}") from busy
        self.refresh()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.lock.close()

    def refresh(self):
        """Writes what differs from the tree, and nothing else: what is built of the rest stays."""
        listed = output(["git", "-C", self.root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"])
        wanted = {name for name in listed.split("\0") if (self.root / name).is_file()}
        for path in self.tree.rglob("*"):
            if path.is_file() and str(path.relative_to(self.tree)) not in wanted:
                path.unlink()
        for name in wanted:
            path, content = self.tree / name, (self.root / name).read_bytes()
            if not path.is_file() or path.read_bytes() != content:
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_bytes(content)
                shutil.copymode(self.root / name, path)

    def run(self, command, limit=None):
        """True when the command succeeded within so many seconds; what it prints is in the log."""
        environment = dict(os.environ, CCACHE_BASEDIR=str(self.tree.parent), CCACHE_NOHASHDIR="1",
                           CCACHE_SLOPPINESS="pch_defines,time_macros,include_file_mtime,include_file_ctime")
        with open(self.log, "a") as log:
            print("--", shlex.join(command), file=log, flush=True)
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=self.tree,
                                       env=environment, start_new_session=True)
            try:
                return process.wait(limit) == 0
            except subprocess.TimeoutExpired:
                print(f"-- takes longer than {limit:.0f} s", file=log)
                return False
            finally:
                # What the test has left behind goes with it.
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
                process.wait()

    def build(self, targets):
        if not (self.build_folder / "build.ninja").is_file():
            # Programs are not linked again for a library that they open when they start, tests are listed when they
            # are run, and a break may leave something unused. Most of the time goes into compiling, so nothing is optimised.
            options = ["-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
                       "-DVELO_WERROR=OFF", "-DVELO_UNITY=OFF", "-DVELO_BENCH=OFF",
                       "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O0 -g0"]
            if shutil.which("ccache"):
                options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
            if not self.run(["cmake", "--preset", "release", "-B", str(self.build_folder), *options]):
                return False
        return self.run(["cmake", "--build", str(self.build_folder), "--parallel", str(self.jobs), "--target",
                         *sorted(targets)])


class Progress:
    """A line that comes and goes on a terminal, and lines that stay."""

    def __init__(self):
        self.here = sys.stdout.isatty()

    def now(self, text):
        if self.here:
            print(f"\r\033[K{text[:100]}", end="", flush=True)

    def line(self, text):
        print(("\r\033[K" if self.here else "") + text, flush=True)


class Run:
    def __init__(self, copy, breaks):
        self.copy, self.breaks, self.tests = copy, breaks, Tests(copy.build_folder)
        self.progress = Progress()
        self.seconds = {}  # by test that passes without a break

    def prepare(self):
        """Builds all tests and runs them without a break."""
        tests = sorted({b.test for b in self.breaks})
        self.progress.now("building the tests")
        known = [t for t in tests if not t.startswith("ctest")]
        # What ctest knows is known once its programs are configured.
        if not self.copy.build(set().union(*map(self.tests.targets, known)) if known else {"help"}):
            raise Mistake(f"the tests do not build, see {self.copy.log}")
        if not self.copy.build(set().union(*map(self.tests.targets, tests)) or {"help"}):
            raise Mistake(f"the tests do not build, see {self.copy.log}")
        for number, test in enumerate(tests, 1):
            self.progress.now(f"[{number}/{len(tests)}] without a break: {test}")
            start = time.monotonic()
            if self.tests.exists(test) and self.copy.run(self.tests.command(test)):
                self.seconds[test] = time.monotonic() - start

    def all(self):
        """The result of each break."""
        results = {}
        for count, b in enumerate(self.breaks, 1):
            start = time.monotonic()
            self.progress.now(f"[{count}/{len(self.breaks)}] {b}: {b.why}")
            results[b] = self.one(b)
            about = "" if results[b] == CAUGHT else f"\n    {b.why}\n    {b.test}"
            self.progress.line(f"{results[b]:<16} {time.monotonic() - start:5.0f} s  {b}{about}")
        return results

    def one(self, b):
        if b.test not in self.seconds:
            return UNSOUND
        path = self.copy.tree / b.file
        before = path.read_text() if path.is_file() else ""
        broken = b.applied(before)
        if broken is None:
            return STALE
        try:
            path.write_text(broken)
            if not self.copy.build(self.tests.targets(b.test)):
                return UNBUILT
            limit = max(PATIENCE_SECONDS, PATIENCE * self.seconds[b.test])
            return SURVIVED if self.copy.run(self.tests.command(b.test), limit) else CAUGHT
        finally:
            path.write_text(before)


def report(results):
    """Prints a line for each room; returns the exit status."""
    rooms = collections.defaultdict(collections.Counter)
    for b, result in results.items():
        rooms[b.room][result] += 1
        rooms["in all"][result] += 1
    print("\n" + f"{'':20}" + "".join(f"{name:>18}" for name in (*RESULTS, "%")))
    for room in [*sorted(rooms.keys() - {"in all"}), "in all"]:
        counts = rooms[room]
        percent = 100 * counts[CAUGHT] / counts.total()
        print(f"{room:20}" + "".join(f"{counts[result]:>18}" for result in RESULTS) + f"{percent:>18.1f}")
    counts = rooms["in all"]
    if counts[SURVIVED]:
        print('\nWhat survived needs a test that sees it, or a sentence why nothing changes: "harmless".')
    return 0 if counts[CAUGHT] == counts.total() else 1


def numbers(text):
    """3 or 3,7-9."""
    chosen = set()
    for part in text.split(","):
        first, _, last = part.partition("-")
        chosen.update(range(int(first), int(last or first) + 1))
    return chosen


def arguments(words):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--check", action="store_true",
                        help="only see that each break still applies and its test is there; nothing is built")
    parser.add_argument("--room", help="only the breaks of tests/mutants/ROOM.json")
    parser.add_argument("--only", type=numbers, metavar="N", help="with --room: only these, such as 3 or 3,7-9")
    parser.add_argument("--build", type=pathlib.Path, metavar="DIR",
                        help="where the copy is and is built (build/mutants); with --check the build folder that has "
                        "the tests (build/release)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N", help="at once while building")
    given = parser.parse_args(words)
    if given.only and not given.room:
        parser.error("--only needs --room, whose breaks it numbers")
    if given.check and given.room:
        parser.error("--check looks at all rooms")
    return given


def main(words, root=ROOT):
    given = arguments(words)
    breaks = load(root)
    if given.check:
        wrong = check(root, (given.build or root / "build/release").resolve())
        print("\n".join(wrong) if wrong else f"{len(breaks)} breaks apply")
        return 1 if wrong else 0
    chosen = [b for b in breaks if b.test and given.room in (None, b.room) and b.number in (given.only or {b.number})]
    if not chosen:
        raise Mistake("there are no such breaks")
    with Copy(root, (given.build or root / "build/mutants").resolve(), given.jobs) as copy:
        run = Run(copy, chosen)
        run.prepare()
        return report(run.all())


if __name__ == "__main__":
    # So that what is running is ended, too.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        sys.exit(main(sys.argv[1:]))
    except Mistake as wrong:
        sys.exit(f"mutants.py: {wrong}")
    except KeyboardInterrupt:
        sys.exit(130)
