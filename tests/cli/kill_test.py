#!/usr/bin/env python3
"""Kills tarn at random moments while it writes, and looks at what is left.

    kill_test.py TARN [--operation import|overwrite|append] [--rounds N] [--points N] [--seed N]

Each round starts the operation, kills the process that it started (and no other), and then expects
the place to hold the state before or the state after, sound; and the same operation to work. 200
rounds take a few minutes; ctest runs a few.
"""
import argparse
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time


class Failure(Exception):
    pass


def run(tarn, *arguments):
    return subprocess.run([tarn, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, check=False)


def must(tarn, *arguments):
    done = run(tarn, *arguments)
    if done.returncode != 0:
        raise Failure(f"tarn {' '.join(arguments)} gave {done.returncode}: {done.stderr}")
    return done.stdout


def state_of(tarn, cloud):
    """None where there is nothing; otherwise the points of the iterations of a sound repository."""
    if not os.path.exists(cloud):
        return None
    verified = run(tarn, "verify", "--json", cloud)
    if verified.returncode != 0:
        raise Failure(f"not sound after a kill: {verified.stdout}{verified.stderr}")
    facts = json.loads(must(tarn, "iterations", "--json", cloud))
    iterations = facts["iterations"] if isinstance(facts, dict) else facts
    return [iteration.get("points", iteration.get("point_count")) for iteration in iterations]


class Operation:
    """Brings `cloud` from the state of `prepare` to another one by `command`."""

    def __init__(self, name, folder, tarn, points):
        self.cloud = os.path.join(folder, "cloud.tarn")
        scans = [os.path.join(folder, name) for name in ("a.las", "b.las")]
        for number, scan in enumerate(scans):
            must(tarn, "synthesize", "-o", scan, "--points", str(points + 1000 * number), "-q")
        first = ["import", scans[0], "-o", self.cloud, "-q"]
        self.first = None if name == "import" else first
        if name == "import":
            self.command = first
        elif name == "overwrite":
            self.command = ["import", scans[1], "-o", self.cloud, "--overwrite", "-q"]
        else:
            self.command = ["append", self.cloud, scans[1], "-q"]
        self.saved = os.path.join(folder, "saved")
        if self.first:
            must(tarn, *self.first)
            shutil.copytree(self.cloud, self.saved)

    def prepare(self):
        if os.path.exists(self.cloud):
            shutil.rmtree(self.cloud)
        if self.first:
            shutil.copytree(self.saved, self.cloud)


def check(tarn, folder, options):
    operation = Operation(options.operation, folder, tarn, options.points)
    operation.prepare()
    before = state_of(tarn, operation.cloud)
    began = time.monotonic()
    must(tarn, *operation.command)
    takes = time.monotonic() - began
    after = state_of(tarn, operation.cloud)
    names = sorted(os.listdir(folder))
    chance = random.Random(options.seed)
    found = {"before": 0, "after": 0, "not killed": 0}
    for number in range(options.rounds):
        operation.prepare()
        process = subprocess.Popen([tarn, *operation.command], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        # More often late, when it writes.
        time.sleep(takes * 1.1 * chance.random() ** 0.5)
        process.send_signal(signal.SIGKILL)  # of a process that has ended, nothing
        if process.wait() == 0:
            found["not killed"] += 1
        state = state_of(tarn, operation.cloud)
        if state not in (before, after):
            raise Failure(f"round {number}: {state} is neither {before} nor {after}")
        found["after" if state == after else "before"] += 1
        if state == before:
            must(tarn, *operation.command)
            if state_of(tarn, operation.cloud) != after:
                raise Failure(f"round {number}: tried again, it gave another state")
            if sorted(os.listdir(folder)) != names:
                raise Failure(f"round {number}: left behind {sorted(os.listdir(folder))}")
        else:
            # An import that was killed when it was done may have left the replaced repository.
            for name in os.listdir(folder):
                if name.startswith(".cloud.tarn.importing-"):
                    shutil.rmtree(os.path.join(folder, name))
    print(f"{options.operation}: {options.rounds} rounds, {found}")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("tarn")
    parser.add_argument("--operation", choices=["import", "overwrite", "append"], default="import")
    parser.add_argument("--rounds", type=int, default=200)
    parser.add_argument("--points", type=int, default=200000)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    options = parser.parse_args()
    print(f"seed {options.seed}")
    with tempfile.TemporaryDirectory() as folder:
        try:
            check(os.path.abspath(options.tarn), folder, options)
        except Failure as failure:
            print(failure, file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
