#!/usr/bin/env python3
"""Replays the demo's captures and compares each frame's verdict with its row in frames.tsv.

usage: check_demo.py VELO EXAMPLES-DIRECTORY
"""

import csv
import json
import pathlib
import subprocess
import sys
import tempfile


def expected_rows(path):
    """What frames.tsv says, by port and frame."""
    rows = {}
    with open(path, newline="") as file:
        for row in csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE):
            rows[row["port"], int(row["frame"])] = row
    return rows


def seen_row(verdict):
    """A verdict in the columns of frames.tsv. What no rule of a list matched is no rule there."""
    hits = [f"{hit['list']}/{hit['rule']}" for hit in verdict["hits"] if hit["rule"] != "implicit"]
    return {
        "dropped": verdict["direction"] if verdict["verdict"] == "drop" else "",
        "reason": verdict.get("reason", ""),
        "rules": " ".join(hits),
        "mirrored": " ".join(verdict["mirrored"]),
    }


def main(arguments):
    if len(arguments) != 3:
        print(__doc__.strip().splitlines()[-1], file=sys.stderr)
        return 2
    velo, examples = arguments[1], pathlib.Path(arguments[2])
    expected = expected_rows(examples / "frames.tsv")
    ports = sorted({port for port, _ in expected})

    with tempfile.TemporaryDirectory() as work:
        verdicts = pathlib.Path(work) / "verdicts"
        command = [velo, "replay", "--config", examples / "demo.acl", "--patch", "eth1,po1", "--json"]
        for port in ports:
            command += ["--port", f"{port}={examples / port}.pcap"]
        command += ["--verdicts", verdicts]
        report = json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)
        seen = [json.loads(line) for line in verdicts.read_text().splitlines()]

    wrong = 0
    for verdict in seen:
        place = verdict["port"], verdict["frame"]
        row = expected.pop(place, None)
        for column, value in seen_row(verdict).items():
            if row is None or row[column] != value:
                wrong += 1
                told = repr(row[column]) if row else "nothing"
                print(f"{place[0]} frame {place[1]}: {column} is {value!r}, frames.tsv says {told}")
    for port, frame in expected:
        wrong += 1
        print(f"{port} frame {frame}: no verdict")
    if len(seen) != report["frames"] or report["frames"] != report["passed"] + report["dropped"]:
        wrong += 1
        print(f"{len(seen)} verdicts, but the report counts {report}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
