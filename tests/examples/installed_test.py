"""Builds and runs the example of a host against nothing but an installed tree: with its CMake
package, and with pkg-config.

usage: installed_test.py CMAKE BUILD_FOLDER SOURCE_FOLDER [--sanitizers=…]
"""

import glob
import os
import shutil
import subprocess
import sys
import tempfile


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, timeout=240, **options)
    if done.returncode != 0:
        sys.exit(f"{command} gave {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def main():
    cmake, build, source = sys.argv[1:4]
    if sys.argv[4] != "--sanitizers=":
        print("SKIPPED: what is built with sanitizers needs them in other programs, too")
        return
    with tempfile.TemporaryDirectory(prefix="tarn-installed-") as folder:
        first, tree = os.path.join(folder, "first"), os.path.join(folder, "moved")
        run(cmake, "--install", build, "--prefix", first)
        os.rename(first, tree)  # an installed tree can be moved
        example = os.path.join(folder, "example")
        shutil.copytree(os.path.join(source, "examples", "host"), example)
        library, = glob.glob(os.path.join(tree, "**", "libOOCPointCloudTarn.so"), recursive=True)
        tarn = os.path.join(tree, "bin", "tarn")

        built = os.path.join(folder, "build")
        run(cmake, "-S", example, "-B", built, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={tree}",
            "-DCMAKE_BUILD_TYPE=Debug")
        run(cmake, "--build", built)
        by_hand = os.path.join(folder, "by_hand")
        environment = dict(os.environ,
                           PKG_CONFIG_PATH=os.path.join(os.path.dirname(library), "pkgconfig"))
        flags = run("pkg-config", "--cflags", "--libs", "OOCPointCloudTarn",
                    env=environment).split()
        assert "-lOOCPointCloudTarn" in flags, flags
        run(os.environ.get("CXX", "c++"), "-std=c++20", os.path.join(example, "host.cpp"), "-o",
            by_hand, *flags, "-Wl,-rpath," + os.path.dirname(library), "-ldl")

        tester = os.path.join(source, "tests", "examples", "host_test.py")
        for host in (os.path.join(built, "host_example"), by_hand):
            run(sys.executable, tester, tarn, host, library)


if __name__ == "__main__":
    main()
