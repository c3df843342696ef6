#!/usr/bin/env python3
"""Makes one source of each batch that a unity build includes: for clang-tidy, which takes some of the
time so, and whose analyzer follows only what stands in the compiled file itself.

join_sources.py BUILD      rewrites the batches of a configured unity build, and prints each source
                           of the project's own that is now compiled
join_sources.py --name     names, in clang-tidy's output on standard input, the files that the lines
                           came from
"""
import json
import os
import re
import sys

INCLUDE = re.compile(r'#include "(.*\.cpp)"')
MARK = "//// from "


def lines_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read().splitlines()


def join(batch):
    joined = []
    for line in lines_of(batch):
        included = INCLUDE.fullmatch(line)
        if included:
            joined.append(MARK + included[1])
            joined += lines_of(included[1])
        else:
            joined.append(line)
    with open(batch, "w", encoding="utf-8") as file:
        file.write("\n".join(joined) + "\n")


def sources(build):
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        return sorted({entry["file"] for entry in json.load(file)})


def origin(batch, line):
    lines = lines_of(batch)[:line]
    for at in range(len(lines) - 1, -1, -1):
        if lines[at].startswith(MARK):
            return lines[at][len(MARK):], line - at - 1
    return batch, line


def name_files():
    place = re.compile(r"^(/.*unity_\d+_cxx\.cxx):(\d+):")
    for line in sys.stdin:
        found = place.match(line)
        if found:
            line = "%s:%d:" % origin(found[1], int(found[2])) + line[found.end():]
        sys.stdout.write(line)


def main():
    if sys.argv[1] == "--name":
        name_files()
        return
    for source in sources(sys.argv[1]):
        if "/Unity/" in source:
            join(source)
        print(source)


main()
