"""Runs the example of a host, and compares what it tells with what the program tells.

usage: host_test.py TARN HOST LIBRARY [--run=COMMAND]   COMMAND starts programs of another system
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile

QUERY = '#and(#num{type=int}("classification", ==, 2), #num{type=int}("intensity", >, 100))'


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tarn")
    parser.add_argument("host")
    parser.add_argument("library")
    parser.add_argument("--run", default="")
    options = parser.parse_args()
    start = [options.run] if options.run else []

    def run(program, *arguments, expected=0):
        done = subprocess.run([*start, program, *arguments], capture_output=True, text=True,
                              timeout=120)
        if done.returncode != expected:
            sys.exit(f"{program} {arguments} gave {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout.replace("\r\n", "\n") + done.stderr

    with tempfile.TemporaryDirectory(prefix="tarn-host-") as folder:
        # Letters of several alphabets: no code page has them all.
        names = ("a.las", "b.las", "Straße 雪.tarn")
        scan, more, cloud = (os.path.join(folder, name) for name in names)
        run(options.tarn, "synthesize", "-o", scan, "--points", "40000", "-q")
        run(options.tarn, "synthesize", "-o", more, "--points", "10000", "--seed", "5", "-q")
        run(options.tarn, "import", scan, "-o", cloud, "-q")
        run(options.tarn, "append", cloud, more, "-q")
        told = run(options.host, options.library, cloud, QUERY)
        count = int(run(options.tarn, "query", cloud, QUERY, "--count").replace(",", "").split()[0])

        selected, tested = map(int, re.search(r"selected (\d+) of (\d+) points", told).groups())
        assert selected == count > 0, (selected, count, told)
        assert tested == 50000, told
        assert re.search(r"first selected point: \S+ \S+ \S+\n", told), told
        # The level-of-detail nodes of an iteration hold all its points, each once.
        iterations = re.split(r"iteration \d+, ", told)[1:]
        sums = [sum(map(int, re.findall(r"nodes, (\d+) points", part))) for part in iterations]
        assert sums == [40000, 50000], told

        for arguments, complaint in (
                ((options.library, cloud, "#nonsense()"), "makes no sense"),
                ((options.library, cloud, '#num{type=int}("height", >, 1)'), "no height"),
                ((options.library, os.path.join(folder, "absent.tarn"), QUERY), "cannot be opened"),
                ((scan, cloud, QUERY), "not the library")):
            assert complaint in run(options.host, *arguments, expected=1), complaint
        run(options.host, expected=2)


if __name__ == "__main__":
    main()
