#!/usr/bin/env python3
"""usage: instructions.py [BUILD_FOLDER...] [--filter REGEX] [--check | --write]

Instructions that one packet takes, counted by valgrind's callgrind: the same whatever else the machine does. For each
build folder (build/release when none is given) the benchmarks of COUNTED, with the inclusive cost of a call of the
function beside them, divided by the packets that it takes. Two folders are set side by side.

--check compares those of the first folder with bench/instructions.txt, and fails when one takes more than 2 % more.
--write makes that file anew. It holds for one compiler and its options, and for processors with AVX2.
"""

import argparse
import pathlib
import subprocess
import sys
import tempfile

# By program: which benchmarks, the function whose calls are counted, and how many packets a call takes.
COUNTED = [
    ("packets-bench", "^judge", "DataplaneAclHelper::processPkt", 1),
    ("packets-bench", "^burst", "::judgeTogether", 64),
    ("matches-bench", "^matches", "Forwarder::receive(", 1),
    ("matches-bench", "^bursts", "Forwarder::receiveBurst", 64),
]
FIGURES = pathlib.Path(__file__).with_name("instructions.txt")
TOLERANCE = 1.02


def benchmarks(program, wanted):
    listed = subprocess.run(
        [program, "--benchmark_list_tests", f"--benchmark_filter={wanted}"], capture_output=True, text=True, check=True
    )
    return [line.split("/repeats")[0] for line in listed.stdout.split()]


def instructions(program, name, counted):
    """A call's, on average."""
    with tempfile.NamedTemporaryFile() as out:
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={out.name}", "--compress-strings=no"]
        command += [program, f"--benchmark_filter=^{name}/", "--benchmark_min_time=0.05"]
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
    if calls == 0:
        sys.exit(f"{name}: {counted} was never called")
    return cost / calls


def figures():
    lines = (line.split() for line in FIGURES.read_text(encoding="ascii").splitlines())
    return {name: float(figure) for name, figure in lines}


def main():
    parser = argparse.ArgumentParser(usage=__doc__.splitlines()[0].removeprefix("usage: "))
    parser.add_argument("folders", nargs="*", default=["build/release"])
    parser.add_argument("--filter")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--write", action="store_true")
    arguments = parser.parse_args()
    known = figures() if arguments.check else {}
    counted_now, failed, unknown = {}, [], set(known)
    for program, usual, counted, packets in COUNTED:
        paths = [f"{folder}/bin/{program}" for folder in arguments.folders]
        wanted = set(benchmarks(paths[0], arguments.filter)) if arguments.filter else None
        for name in benchmarks(paths[0], usual):
            if wanted is not None and name not in wanted:
                unknown.discard(name)
                continue
            counts = [instructions(path, name, counted) / packets for path in paths]
            counted_now[name] = counts[0]
            beside = ""
            if arguments.check:
                unknown.discard(name)
                before = known.get(name)
                beside = "  is not in the file" if before is None else f"  {counts[0] / before - 1:+.1%}"
                if before is None or counts[0] > before * TOLERANCE:
                    failed.append(name)
            print(f"{name:40}" + "".join(f"{count:10.1f}" for count in counts) + beside, flush=True)
    if arguments.write:
        FIGURES.write_text("".join(f"{name} {count:.1f}\n" for name, count in counted_now.items()), encoding="ascii")
    for name in sorted(unknown):
        print(f"{name}: in the file, and no benchmark has this name")
    if failed:
        print(f"more than {FIGURES.name} says: {', '.join(failed)}")
    return 1 if failed or unknown else 0


if __name__ == "__main__":
    sys.exit(main())
