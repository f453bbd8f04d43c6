#!/usr/bin/env python3
"""Checks that every header compiles alone: that it includes all that it uses.

Tells the compiler's first line about each header that does not; the exit status is 1 then. A header whose content, and
that of all headers of the project behind it, is as it was when it last passed is not compiled again. So a first run
takes minutes of processor time, and further ones seconds.

usage: check_headers.py [--build DIR] [--compiler CXX] [HEADER ...]

--build is where what the build makes lies (interface/velo-interface-version.h), and where it is remembered which
headers have passed (build/release). Without HEADERs all of the project's are checked.
"""

import argparse
import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
# Whose headers those of the project include.
LIBRARIES = ["libxml-2.0", "dbus-1"]


class Headers:
    """The headers of the project, and what each of them says with all that it includes."""

    def __init__(self, root, build):
        self.root = root
        self.folders = [root / "platform", root, root / "bench", build / "interface"]

    @functools.lru_cache(maxsize=None)
    def included(self, path):
        """The headers of the project that a file includes itself."""
        found = []
        for kind, name in INCLUDE.findall(path.read_text(encoding="utf-8")):
            folders = ([path.parent] if kind == '"' else []) + self.folders
            found += [(folder / name).resolve() for folder in folders if (folder / name).is_file()][:1]
        return found

    def digest(self, path, salt):
        """Of a header, and of all that it includes, however far away."""
        todo, seen = [path.resolve()], set()
        while todo:
            at = todo.pop()
            if at not in seen:
                seen.add(at)
                todo += self.included(at)
        whole = hashlib.sha256(salt.encode())
        for each in sorted(seen):
            whole.update(each.read_bytes())
        return whole.hexdigest()


def command_of(compiler, headers):
    # Without a library's flags the headers that need it say so.
    flags = subprocess.run(["pkg-config", "--cflags"] + LIBRARIES, stdout=subprocess.PIPE, text=True, check=False).stdout
    warnings = ["-Wall", "-Wextra", "-Werror"]
    # What the build tells tests.
    places = [f'-DVELO_SOURCE_DIR="{headers.root}"', '-DVELO_BIN_DIR=""']
    return [compiler, "-std=c++20", "-fsyntax-only", *warnings, *places, *(f"-I{each}" for each in headers.folders),
            *flags.split(), "-x", "c++", "-"]


def wrong_with(command, root, header):
    """What the compiler says of a file that includes the header and nothing else; nothing if that is right."""
    done = subprocess.run(command, input=f'#include "{header}"\n', stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False, cwd=root)
    if done.returncode == 0:
        return None
    lines = [line for line in done.stdout.splitlines() if "error" in line]
    return lines[0] if lines else done.stdout.strip() or f"the compiler ended with status {done.returncode}"


def main():
    parser = argparse.ArgumentParser(description="Checks that every header compiles alone.")
    parser.add_argument("--build", default="build/release", metavar="DIR")
    parser.add_argument("--compiler", default=os.environ.get("CXX", "c++"), metavar="CXX")
    parser.add_argument("headers", nargs="*", metavar="HEADER")
    given = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    build = (root / given.build).resolve()
    if not (build / "interface").is_dir():
        parser.error(f"{build} is no build folder: {build}/interface is not there")

    names = given.headers or subprocess.run(["git", "ls-files", "*.h"], cwd=root, stdout=subprocess.PIPE, text=True,
                                            check=True).stdout.split()
    if not names:
        parser.error("there are no headers")
    headers = Headers(root, build)
    command = command_of(given.compiler, headers)
    remembered = build / "headers-that-passed.json"
    passed = set(json.loads(remembered.read_text())) if remembered.exists() else set()
    digests = {name: headers.digest(root / name, " ".join(command)) for name in names}
    due = [name for name in names if digests[name] not in passed]

    # The compiler has the processors; the threads only wait for it.
    wrong = 0
    with concurrent.futures.ThreadPoolExecutor(max_workers=len(os.sched_getaffinity(0))) as pool:
        for name, why in zip(due, pool.map(lambda name: wrong_with(command, root, name), due)):
            if why is None:
                passed.add(digests[name])
            else:
                wrong += 1
                print(f"{name}: does not compile alone: {why}")
    if not given.headers:
        passed &= set(digests.values())
    remembered.write_text(json.dumps(sorted(passed)))
    print(f"{len(names)} headers, {len(due)} compiled, {wrong} of them not right")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
