#!/usr/bin/env python3
"""Breaks a program of a few lines in every way that mutants.py has a word for, and sees what it says and answers."""

import contextlib
import io
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import mutants  # noqa: E402

# The test program knows as much of a test program's manners as is asked of it, and the tests Sum.Adds and Sum.Fails.
FILES = {
    ".gitignore": "/build/\n",
    "CMakePresets.json": """{ "version": 6, "configurePresets": [
  { "name": "release", "generator": "Ninja", "binaryDir": "${sourceDir}/build/release" } ] }""",
    "CMakeLists.txt": """cmake_minimum_required(VERSION 3.25)
project(toy LANGUAGES C)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
add_executable(sum-tests sum.c tests.c)
enable_testing()
add_test(NAME whole.sum COMMAND sum-tests --gtest_filter=Sum.Adds)
""",
    "sum.c": """int sum(const int* numbers, int count) {
  int all = 0;
  for (int i = 0; i < count; ++i) all += numbers[i];
  return all;
}
""",
    "tests.c": r"""#include <stdio.h>
#include <string.h>
int sum(const int* numbers, int count);
int main(int count, char** words) {
  if (count > 1 && !strcmp(words[1], "--gtest_list_tests")) {
    puts("Sum.\n  Adds\n  Fails  # always");
    return 0;
  }
  const int numbers[] = {1, 2, 3};
  return (count > 1 && strstr(words[1], "Fails")) || sum(numbers, 3) != 6;
}
""",
}

STEP = "++i"
CAUGHT = {"file": "sum.c", "search": STEP, "replace": "i += 2", "test": "sum-tests Sum.A*", "why": "It leaves one out."}


def changed(**texts):
    return {**CAUGHT, **texts}


class Mutants(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.root = pathlib.Path(holder.name)
        (cls.root / "tests/mutants").mkdir(parents=True)
        for name, text in FILES.items():
            (cls.root / name).write_text(text)
        subprocess.run(["git", "init", "--quiet", str(cls.root)], check=True)
        cls.enterClassContext(unittest.mock.patch.object(mutants, "PATIENCE_SECONDS", 0.5))

    def run_with(self, *rows, words=(), rooms=None):
        """The exit status of a run with these breaks, and what it prints; a Mistake counts as 1."""
        for path in (self.root / "tests/mutants").iterdir():
            path.unlink()
        for room, its in (rooms or {"toy": rows}).items():
            (self.root / f"tests/mutants/{room}.json").write_text(json.dumps(list(its)))
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            try:
                status = mutants.main(list(words), self.root)
            except mutants.Mistake as wrong:
                return 1, str(wrong)
        return status, printed.getvalue()

    def test_every_result_has_its_word_and_its_status(self):
        for row, word, status in [
            (CAUGHT, "caught", 0),
            (changed(test="ctest ^whole[.]"), "caught", 0),
            (changed(replace="i += 0"), "caught", 0),  # a hang
            (changed(replace="++i, all += 0"), "SURVIVED", 1),
            (changed(search="all"), "DOES NOT APPLY", 1),  # it is there several times
            (changed(search="nowhere"), "DOES NOT APPLY", 1),
            (changed(file="other.c"), "DOES NOT APPLY", 1),
            (changed(replace="++j"), "DOES NOT BUILD", 1),
            (changed(test="sum-tests Sum.Fails"), "FAILS WITHOUT IT", 1),
            (changed(test="sum-tests Sum.None"), "FAILS WITHOUT IT", 1),
        ]:
            with self.subTest(row):
                got, text = self.run_with(row)
                self.assertTrue(text.startswith(word), text)
                self.assertEqual(got, status)
                self.assertEqual((self.root / "sum.c").read_text(), FILES["sum.c"], "the tree itself stays as it is")

    def test_a_break_does_not_outlast_its_turn(self):
        status, text = self.run_with(CAUGHT, changed(replace="i++"), changed(replace="i += 3"))
        self.assertEqual([line.split()[0] for line in text.splitlines() if "sum.c" in line],
                         ["caught", "SURVIVED", "caught"])
        self.assertEqual(status, 1)

    def test_what_is_caught_is_counted_by_room(self):
        one, other = changed(replace="i++"), changed(search="= 0;\n", replace="= 1;\n")
        status, text = self.run_with(rooms={"first": [CAUGHT, one], "second": [other]})
        table = {line.rsplit(maxsplit=6)[0].strip(): line.split()[-6:] for line in text.splitlines()[-5:-2]}
        self.assertEqual(table, {"first": ["1", "1", "0", "0", "0", "50.0"], "second": ["1", "0", "0", "0", "0", "100.0"],
                                 "in all": ["2", "1", "0", "0", "0", "66.7"]})
        self.assertEqual(status, 1)

    def test_what_survives_needs_a_sentence(self):
        rows = [*[changed(replace=f"i += {step}") for step in range(2, 42)], changed(replace="i++")]
        status, text = self.run_with(*rows)
        self.assertEqual(status, 1, "one of many")
        self.assertIn('"harmless"', text.splitlines()[-1])
        said = {"harmless": "It is the same."} | {key: rows[-1][key] for key in ("file", "search", "replace")}
        self.assertEqual(self.run_with(CAUGHT, said)[0], 0)

    def test_the_copy_has_what_the_tree_has(self):
        extra, ignored = self.root / "extra.h", self.root / "build/ignored.h"
        extra.write_text("one")
        ignored.write_text("not this one")
        folder = self.root / "build/mutants"
        for text in ["one", "another", None]:
            if text is None:
                extra.unlink()
            else:
                extra.write_text(text)
            with mutants.Copy(self.root, folder, 1) as copy:
                there = {path.name: path.read_text() for path in copy.tree.glob("**/*.h")}
            self.assertEqual(there, {"extra.h": text} if text else {})

    def test_some_can_be_chosen(self):
        rooms = {"first": [changed(replace="i++"), CAUGHT], "second": [changed(replace="i += 3")]}
        self.assertEqual(self.run_with(rooms=rooms, words=["--room", "first", "--only", "2"])[0], 0)
        self.assertEqual(self.run_with(rooms=rooms, words=["--room", "second"])[0], 0)
        self.assertEqual(self.run_with(rooms=rooms, words=["--room", "first", "--only", "1-2"])[0], 1)
        status, text = self.run_with(rooms=rooms, words=["--room", "third"])
        self.assertEqual((status, text), (1, "there are no such breaks"))

    def test_what_changes_nothing_is_not_run_and_not_counted(self):
        harmless = {"file": "sum.c", "search": STEP, "replace": "i++", "harmless": "Nobody reads the old number."}
        status, text = self.run_with(harmless, CAUGHT)
        self.assertEqual(status, 0)
        self.assertNotIn("toy 1 ", text)

    def test_the_check_sees_what_is_stale_without_building(self):
        self.run_with(CAUGHT)  # so that there are tests
        words = ["--check", "--build", str(self.root / "build/mutants/build")]
        harmless = {"file": "sum.c", "search": "all", "replace": "sum", "harmless": "Another name."}
        for row, wrong in [
            (CAUGHT, ""),
            (changed(test="ctest ^whole[.]sum$"), ""),
            (changed(test="sum-tests *-Sum.Fails"), ""),
            (changed(search="all"), "the text is there 3 times"),
            (changed(search="nowhere"), "the text is there 0 times"),
            (changed(file="other.c"), "there is no such file"),
            (changed(test="sum-tests *-Sum.*"), "there is no such test"),
            (changed(test="ctest ^part[.]"), "there is no such test"),
            (changed(test="other-tests *"), "is not built"),
            (harmless, "the text is there 3 times"),
        ]:
            with self.subTest(row):
                status, text = self.run_with(row, words=words)
                self.assertEqual(status, 1 if wrong else 0, text)
                self.assertIn(wrong or "1 breaks apply", text)

    def test_lists_that_are_not_whole_are_refused(self):
        for row, wrong in [
            ([], "break 1 is not a set of texts"),
            ({**CAUGHT, "why": 1}, "break 1 is not a set of texts"),
            ({**CAUGHT, "harmless": "No."}, "instead of"),
            ({**CAUGHT, "room": "toy"}, "instead of"),
            (changed(why=" "), "an empty text"),
            (changed(search=""), "an empty text"),
            (changed(replace=STEP), "by itself"),
            (changed(test="sum-tests"), "names no test"),
        ]:
            with self.subTest(row):
                self.assertIn(wrong, self.run_with(row, words=["--check"])[1])
        self.assertIn("once more", self.run_with(CAUGHT, CAUGHT, words=["--check"])[1])
        self.assertIn("no breaks", self.run_with(words=["--check"])[1])

    def test_two_runs_do_not_share_a_copy(self):
        with mutants.Copy(self.root, self.root / "build/mutants", 1):
            self.assertIn("another run is using", self.run_with(CAUGHT)[1])
        self.assertEqual(self.run_with(CAUGHT)[0], 0)


if __name__ == "__main__":
    unittest.main()
