#!/usr/bin/env bash
# Builds, for 64-bit Windows, the libraries that the project uses, from the sources of the packages
# that are installed on this Debian system, into build/windows-libraries. What is built already
# stays, until the version of its package changes.
# The sources come from the same places as the packages; neither apt's configuration nor its lists
# are touched.
set -euo pipefail
cd "$(dirname "$0")/.."
prefix=$PWD/build/windows-libraries
work=$prefix/work
mkdir -p "$work/apt/lists/partial" "$prefix/include" "$prefix/bin" "$prefix/stamps"

# Entries for the sources of this release, made from those for its packages, in either notation.
list_source_entries() {
  local release
  release=$(. /etc/os-release && echo "$VERSION_CODENAME")
  # Either place may be missing, which is no failure.
  { find /etc/apt/sources.list /etc/apt/sources.list.d -name '*.list' 2>/dev/null || true; } | sort |
    xargs -r awk -v release="$release" '
      $1 == "deb" {
        options = ""; at = 2
        if ($2 ~ /^\[/) { while ($at !~ /\]$/) options = options $(at++) " "; options = options $(at++) " " }
        if ($(at + 1) !~ "^" release "(-updates|-security)?$") next
        $1 = "deb-src"; print
      }'
  { find /etc/apt/sources.list.d -name '*.sources' 2>/dev/null || true; } | sort | while read -r file; do
    { cat "$file"; echo; } | awk -v release="$release" '
      function flush(  i, j, m, n, suite, uri) {
        if (types ~ /(^| )deb( |$)/) {
          m = split(uris, uri, " "); n = split(suites, suite, " ")
          for (i = 1; i <= m; ++i) for (j = 1; j <= n; ++j)
            if (suite[j] ~ "^" release "(-updates|-security)?$")
              print "deb-src " (key ? "[signed-by=" key "] " : "") uri[i], suite[j], components
        }
        types = uris = suites = components = key = ""
      }
      /^[ \t]*$/ { flush(); next }
      /^#/ { next }
      {
        name = tolower($1); value = $0; sub(/^[^:]*:[ \t]*/, "", value)
        if (name == "types:") types = value
        if (name == "uris:") uris = value
        if (name == "suites:") suites = value
        if (name == "components:") components = value
        if (name == "signed-by:") key = value
      }
      END { flush() }'
  done
}

# Runs an apt command with these entries alone.
with_sources() {
  "$@" -qq -o Dir::Etc::sourcelist="$work/apt/sources.list" -o Dir::Etc::sourceparts=/dev/null \
    -o Dir::State::lists="$work/apt/lists" -o APT::Sandbox::User=
}

# Unpacks a package's source as $work/NAME: of the version that is installed or, where that one is
# not to be had (as happens to security updates), of the newest one that is.
unpack_source() {
  local name=$1 wanted=$2 version
  if [ ! -s "$work/apt/sources.list" ]; then
    list_source_entries >"$work/apt/sources.list"
    with_sources apt-get update
  fi
  rm -rf "${work:?}/$name"
  for version in "$wanted" $(with_sources apt-cache showsrc "$name" |
      sed -n 's/^Version: //p' | sort -rVu); do
    rm -rf "${work:?}/fetched"
    mkdir "$work/fetched"
    if (cd "$work/fetched" && with_sources apt-get source --download-only "$name=$version"); then
      [ "$version" = "$wanted" ] || echo "$name: no source of $wanted, so of $version" >&3
      dpkg-source --no-check -x "$work"/fetched/*.dsc "$work/$name"
      return
    fi
  done
  echo "no source of $name can be fetched"
  return 1
}

# build NAME FOLDER OPTION... : configures, builds and installs what is in $work/FOLDER.
build() {
  local name=$1 folder=$2
  shift 2
  cmake -S "$folder" -B "$work/build-$name" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/windows-toolchain.cmake" \
    -DOOCPC_WINDOWS_LIBRARIES="$prefix" -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DCMAKE_STAGING_PREFIX="$prefix" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_PROJECT_INCLUDE="$PWD/cmake/WindowsNames.cmake" -DBUILD_SHARED_LIBS=OFF "$@"
  cmake --build "$work/build-$name" -j "$(nproc)"
  cmake --install "$work/build-$name"
}

version_of() { dpkg-query -W -f '${source:Version}' "$1"; }

# library NAME PACKAGE [FILE]: does build_NAME when NAME is not there in the version of PACKAGE, built
# with FILE as it is now.
library() {
  local name=$1 version state stamp
  version=$(version_of "$2")
  state="$version${3:+ $(cksum <"$3")}"
  stamp=$prefix/stamps/$name
  [ "$(cat "$stamp" 2>/dev/null)" != "$state" ] || return 0
  echo "building for Windows: $name $version"
  rm -rf "${work:?}/build-$name"
  set +e  # in a condition, "set -e" would not hold within either
  (set -e; "build_$name" "$version") 3>&1 >"$work/$name.log" 2>&1
  local failed=$?
  set -e
  if [ "$failed" -ne 0 ]; then
    tail -n 60 "$work/$name.log" >&2
    echo "windows-libraries.sh: $name could not be built; all of it is in $work/$name.log" >&2
    exit 1
  fi
  rm -rf "${work:?}/build-$name" "${work:?}/$name" "${work:?}/fetched"
  echo "$state" >"$stamp"
}

# Loads its allocator as "tbbmalloc.dll", and goes on without a word, but slowly, when there is no
# file of that name.
build_tbb() {
  unpack_source onetbb "$1"
  # Unloading it leaves nothing of the compiler's runtime behind, as with our own DLLs.
  local runtime=$work/WindowsRuntime.o call wrapped=
  x86_64-w64-mingw32-g++-posix -std=c++20 -O2 -fno-exceptions -c cmake/WindowsRuntime.cpp -o "$runtime"
  for call in $(sed -n 's/^set(OOCPC_RUNTIME_CALLS \(.*\))$/\1/p' cmake/WindowsRuntime.cmake); do
    wrapped+=" -Wl,--wrap=__imp_$call"
  done
  build tbb "$work/onetbb" -DBUILD_SHARED_LIBS=ON -DTBB_TEST=OFF -DTBB_STRICT=OFF -DTBBMALLOC_PROXY_BUILD=OFF \
    -DCMAKE_SHARED_LINKER_FLAGS="-static $runtime$wrapped"
  rm -rf "$work/onetbb"
  [ -f "$prefix/bin/tbb12.dll" ] && [ -f "$prefix/bin/tbbmalloc.dll" ]
}
build_zstd() {
  unpack_source libzstd "$1"
  build zstd "$work/libzstd/build/cmake" -DZSTD_BUILD_SHARED=OFF -DZSTD_BUILD_PROGRAMS=OFF
}
build_highway() {
  unpack_source highway "$1"
  build highway "$work/highway" -DBUILD_TESTING=OFF -DHWY_ENABLE_CONTRIB=OFF -DHWY_ENABLE_EXAMPLES=OFF \
    -DHWY_ENABLE_TESTS=OFF
}
build_png() {
  unpack_source libpng1.6 "$1"
  build png "$work/libpng1.6" -DPNG_SHARED=OFF -DPNG_TESTS=OFF
}
build_pugixml() {
  unpack_source pugixml "$1"
  build pugixml "$work/pugixml"
}
build_googletest() {
  build googletest /usr/src/googletest -DBUILD_GMOCK=ON
}
# Headers only; of a folder of their own, since this system's other headers are not for Windows.
build_headers() {
  ln -sfn /usr/include/boost "$prefix/include/boost"
  ln -sfn /usr/include/CLI "$prefix/include/CLI"
  ln -sfn /usr/include/nlohmann "$prefix/include/nlohmann"
  local folder
  mkdir -p "$prefix/lib/cmake" "$prefix/share/cmake"
  for folder in /usr/lib/cmake/CLI11 /usr/share/cmake/CLI11 /usr/share/cmake/nlohmann_json \
      /usr/lib/cmake/nlohmann_json; do
    [ ! -d "$folder" ] || cp -r "$folder" "$prefix${folder#/usr}"
  done
}

library headers libboost-dev
library tbb libtbb-dev cmake/WindowsRuntime.cpp
library zstd libzstd-dev
library highway libhwy-dev
library png libpng-dev
library pugixml libpugixml-dev
library googletest googletest
