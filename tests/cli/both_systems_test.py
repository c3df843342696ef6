"""Lets the programs of two systems do the same work: what they write is the same, byte for byte,
and each reads what the other wrote.

usage: TARN_HERE=tarn both_systems_test.py TARN [--run=COMMAND]

TARN_HERE is this system's program; COMMAND starts TARN, which is the other system's.
"""

import argparse
import filecmp
import os
import subprocess
import sys
import tempfile

QUERY = '#and(#num{type=int}("classification", ==, 2), #num{type=int}("intensity", >, 100))'


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tarn")
    parser.add_argument("--run", default="")
    options = parser.parse_args()
    here = os.environ.get("TARN_HERE")
    if not here:
        print("SKIPPED: TARN_HERE names no program of this system")
        return
    programs = {"here": [here], "there": [*filter(None, [options.run]), options.tarn]}

    def run(who, *arguments):
        done = subprocess.run([*programs[who], *arguments], capture_output=True, timeout=300)
        if done.returncode != 0:
            sys.exit(f"{who} {arguments} gave {done.returncode}: {done.stderr.decode()}")
        return done.stdout

    def expect_same(names, *folders):
        _, differing, missing = filecmp.cmpfiles(*folders, names, shallow=False)
        assert names and not differing and not missing, (differing, missing)

    with tempfile.TemporaryDirectory(prefix="tarn-both-") as folder:
        # One scan for both: a made-up street depends on the system's sines and cosines.
        first, second = os.path.join(folder, "Straße 点群.las"), os.path.join(folder, "b.las")
        run("here", "synthesize", "-o", first, "--points", "300000", "-q")
        run("there", "synthesize", "-o", second, "--points", "50000", "--seed", "7", "-q")
        # Below folders whose names make the path longer than Windows once allowed.
        work = {who: os.path.join(folder, who, *4 * ["ordner-папка-" + 70 * "x"])
                for who in programs}
        for who, place in work.items():
            assert len(place) > 260
            os.makedirs(place)
            at = lambda name, place=place: os.path.join(place, name)
            run(who, "import", first, "-o", at("Ωμέγα.tarn"), "--time", "5", "-q")
            run(who, "append", at("Ωμέγα.tarn"), second, "--time", "6", "-q")
            run(who, "export", at("Ωμέγα.tarn"), "-o", at("c.las"), "-q")
            run(who, "export", at("Ωμέγα.tarn"), "-o", at("d.laz"), "-q")
            run(who, "query", at("Ωμέγα.tarn"), QUERY, "-o", at("e.csv"))
        expect_same(["c.las", "d.laz", "e.csv"], *work.values())
        clouds = [os.path.join(place, "Ωμέγα.tarn") for place in work.values()]
        names = sorted(os.listdir(clouds[0]))
        assert names == sorted(os.listdir(clouds[1])), os.listdir(clouds[1])
        expect_same(names, *clouds)

        assert run("here", "verify", clouds[1], "-q") == run("there", "verify", clouds[0], "-q")
        assert (run("here", "query", clouds[1], QUERY, "--count") ==
                run("there", "query", clouds[0], QUERY, "--count"))
        # Each goes on with what the other wrote.
        for who, cloud in (("here", clouds[1]), ("there", clouds[0])):
            run(who, "append", cloud, second, "--time", "8", "-q")
        expect_same(sorted(os.listdir(clouds[0])), *clouds)


if __name__ == "__main__":
    main()
