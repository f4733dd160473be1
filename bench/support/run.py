# SPDX-License-Identifier: Apache-2.0
"""Runs the benches and makes the table. bench/run calls this from the top folder of the repository."""

import argparse
import json
import os
import pathlib
import subprocess
import sys

import player
import table

BUILD = pathlib.Path("build/release")
BENCHES = ["process", "delivery", "flush", "components", "pool", "gates", "converter", "gstreamer"]


def say(text):
    print(f"== {text}", file=sys.stderr, flush=True)


def options():
    parser = argparse.ArgumentParser(prog="bench/run", description="Runs the benches.")
    parser.add_argument("--only", metavar="NAME", choices=BENCHES + ["player"],
                        help="run one bench: " + ", ".join(BENCHES + ["player"]))
    parser.add_argument("--quick", action="store_true",
                        help="run each bench briefly, only to check that it works")
    parser.add_argument("--json", metavar="FILE", type=pathlib.Path,
                        help="file for the raw results (default: build/bench.json; with --only "
                             "build/bench-NAME.json)")
    parser.add_argument("--write", metavar="FILE", type=pathlib.Path,
                        help="also write the table between the marks in this file")
    chosen = parser.parse_args()
    if chosen.write and (chosen.only or chosen.quick):
        parser.error("--write cannot be used with --only or --quick")
    if not chosen.json:
        chosen.json = pathlib.Path(f"build/bench-{chosen.only}.json" if chosen.only else "build/bench.json")
    return chosen


def build():
    subprocess.run(["cmake", "--preset", "release"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", "--preset", "release", "--target", "benches"],
                   check=True, stdout=sys.stderr)


def run_bench(name, quick):
    """Runs a bench and returns its results, or None if the bench has not been built."""
    binary = BUILD / "bench" / f"{name}_bench"
    if not binary.exists():
        say(f"{name}: left out, because a library that it needs is missing; run scripts/setup --bench")
        return None
    environment = dict(os.environ, **({"QOZ_BENCH_QUICK": "1"} if quick else {}))
    done = subprocess.run([binary, "--benchmark_format=json"], check=True, env=environment,
                          stdout=subprocess.PIPE)
    return json.loads(done.stdout)["benchmarks"]


def run_all(names, quick):
    """Returns the rows for the table and the names of the benches that failed."""
    rows, failed = [], []
    for name in names:
        say(name)
        try:
            if name == "player":
                rows += player.rows(BUILD / "tools/qozplay/qozplay", quick)
            else:
                rows += [table.row(name, found) for found in run_bench(name, quick) or []]
        except (subprocess.CalledProcessError, ValueError, KeyError) as error:
            say(f"{name}: failed: {error}")
            failed.append(name)
    return rows, failed


def machine():
    compiler = subprocess.run(["g++", "-dumpfullversion"], check=True, capture_output=True,
                              text=True).stdout.strip()
    return {"cores": os.cpu_count(), "compiler": f"g++ {compiler}"}


def main():
    chosen = options()
    if chosen.write and not table.has_marks(chosen.write):
        say(f"{chosen.write}: the file does not exist or has no marks for the table")
        return 2
    if os.getloadavg()[0] > 0.5 * os.cpu_count():
        say("the machine is busy, so the figures will be less reliable")
    build()
    names = [chosen.only] if chosen.only else BENCHES + ["player"]
    rows, failed = run_all(names, chosen.quick)
    where = machine()
    chosen.json.parent.mkdir(parents=True, exist_ok=True)
    chosen.json.write_text(json.dumps({"machine": where, "rows": rows}, indent=1) + "\n")
    text = table.text(rows, where)
    print(text)
    if chosen.write and not failed:
        table.write(chosen.write, text)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
