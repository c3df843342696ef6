"""Builds and runs the example of a host against nothing but an installed tree: with its CMake
package, and with pkg-config.

usage: installed_test.py CMAKE BUILD_FOLDER SOURCE_FOLDER COMPILER [--sanitizers=…]
           [--run=COMMAND --libraries=FOLDER]

COMMAND starts programs of another system, Windows; in FOLDER is what it has no packages for.
"""

import argparse
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
    parser = argparse.ArgumentParser()
    for name in ("cmake", "build", "source", "compiler"):
        parser.add_argument(name)
    for name in ("--sanitizers", "--run", "--libraries"):
        parser.add_argument(name, default="")
    options = parser.parse_args()
    if options.sanitizers:
        print("SKIPPED: what is built with sanitizers needs them in other programs, too")
        return
    is_windows = bool(options.run)
    ending = ".exe" if is_windows else ""
    with tempfile.TemporaryDirectory(prefix="tarn-installed-") as folder:
        first, tree = os.path.join(folder, "first"), os.path.join(folder, "moved")
        run(options.cmake, "--install", options.build, "--prefix", first)
        os.rename(first, tree)  # an installed tree can be moved
        example = os.path.join(folder, "example")
        shutil.copytree(os.path.join(options.source, "examples", "host"), example)
        name = "OOCPointCloudTarn.dll" if is_windows else "libOOCPointCloudTarn.so"
        library, = glob.glob(os.path.join(tree, "**", name), recursive=True)
        tarn = os.path.join(tree, "bin", "tarn" + ending)

        built = os.path.join(folder, "build")
        run(options.cmake, "-S", example, "-B", built, "-G", "Ninja",
            f"-DCMAKE_PREFIX_PATH={tree};{options.libraries}", "-DCMAKE_BUILD_TYPE=Debug",
            f"-DCMAKE_CXX_COMPILER={options.compiler}",
            *(["-DCMAKE_SYSTEM_NAME=Windows", "-DCMAKE_EXE_LINKER_FLAGS=-static"]
              if is_windows else []))
        run(options.cmake, "--build", built)
        by_hand = os.path.join(folder, "by_hand" + ending)
        packages, = glob.glob(os.path.join(tree, "**", "pkgconfig"), recursive=True)
        if is_windows:
            packages += ":" + os.path.join(options.libraries, "lib", "pkgconfig")
        flags = run("pkg-config", "--cflags", "--libs", "OOCPointCloudTarn",
                    env=dict(os.environ, PKG_CONFIG_PATH=packages)).split()
        assert "-lOOCPointCloudTarn" in flags, flags
        if is_windows:  # the compiler's runtime alone goes into the program
            flags = ["-static", "-Wl,-Bdynamic", *flags, "-Wl,-Bstatic"]
        else:
            flags += ["-Wl,-rpath," + os.path.dirname(library), "-ldl"]
        run(options.compiler, "-std=c++20", os.path.join(example, "host.cpp"), "-o", by_hand,
            *flags)

        # Where Windows looks for the libraries of programs that do not lie beside them.
        environment = dict(os.environ, WINEPATH=os.path.join(tree, "bin"))
        tester = os.path.join(options.source, "tests", "examples", "host_test.py")
        for host in (os.path.join(built, "host_example" + ending), by_hand):
            run(sys.executable, tester, tarn, host, library, "--run=" + options.run,
                env=environment)


if __name__ == "__main__":
    main()
