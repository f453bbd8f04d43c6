#!/usr/bin/env python3
"""usage: instructions.py [BUILD_FOLDER...] [--filter REGEX]

Instructions that one packet takes, counted by valgrind's callgrind: the same whatever else the machine does. For each
build folder (build/release when none is given) the benchmarks of COUNTED, with the inclusive cost of a call of the
function beside them. Two folders are set side by side.
"""

import argparse
import pathlib
import subprocess
import sys
import tempfile

# By program: which benchmarks, and the function whose calls are counted.
COUNTED = {
    "packets-bench": ("^judge", "DataplaneAclHelper::processPkt"),
    "matches-bench": ("^matches", "Forwarder::receive"),
}


def benchmarks(program, wanted):
    listed = subprocess.run(
        [program, "--benchmark_list_tests", f"--benchmark_filter={wanted}"], capture_output=True, text=True, check=True
    )
    return [line.split("/repeats")[0] for line in listed.stdout.split()]


def instructions(program, name, counted):
    """A call's, on average."""
    with tempfile.NamedTemporaryFile() as out:
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={out.name}", "--compress-strings=no"]
        command += [program, f"--benchmark_filter=^{name}/", "--benchmark_min_time=0.005"]
        subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        calls = cost = 0
        state = ""
        for line in pathlib.Path(out.name).read_text(errors="replace").splitlines():
            # A call is three lines: who is called, how often, and from which line at what inclusive cost.
            if line.startswith("cfn="):
                state = "called" if counted in line else ""
            elif state == "called" and line.startswith("calls="):
                calls += int(line.split()[0].removeprefix("calls="))
                state = "cost"
            elif state == "cost":
                cost += int(line.split()[1])
                state = ""
    return cost / calls


def main():
    parser = argparse.ArgumentParser(usage=__doc__.splitlines()[0].removeprefix("usage: "))
    parser.add_argument("folders", nargs="*", default=["build/release"])
    parser.add_argument("--filter")
    arguments = parser.parse_args()
    for program, (usual, counted) in COUNTED.items():
        paths = [f"{folder}/bin/{program}" for folder in arguments.folders]
        for name in benchmarks(paths[0], arguments.filter or usual):
            counts = [instructions(path, name, counted) for path in paths]
            print(f"{name:40}" + "".join(f"{count:10.1f}" for count in counts), flush=True)


if __name__ == "__main__":
    sys.exit(main())
