#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What users get: installs a build into an empty prefix and builds examples/consumer against it with
# CMake, pkg-config and qmake, from the build tree, and inside a tree that takes the sources with
# FetchContent; runs each. Checks the installed headers one by one and the exported symbols.
# usage: scripts/check-install.sh [--quick] [build folder]     (build/release)
#   --quick   leaves out the builds that compile the library anew: FetchContent and the static one
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
quick=
if [ "${1-}" = --quick ]; then
    quick=1
    shift
fi
build=$(cd -- "${1:-$root/build/release}" && pwd -P)
example=$root/examples/consumer
"$root/scripts/deps.sh" build install
# Always the same folder, so that a compiler cache knows its files again.
work=$root/build/install-check
rm -rf -- "$work"
mkdir -p -- "$work"
launcher=()
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# What is compiled here to see that it can be: in a third of the time.
hasty=(-DCMAKE_CXX_FLAGS_RELEASE=-O0 -DCMAKE_UNITY_BUILD=ON)

consumer() { "$root/scripts/check-consumer.sh" "$@"; }

# Into an empty prefix, which is then moved: nothing may have kept its name.
cmake --install "$build" --prefix "$work/first" >/dev/null
mv -- "$work/first" "$work/moved"
prefix=$work/moved
if grep -rIl -e "$root" -e "$work/first" "$prefix" | grep . >&2; then
    echo "install: these installed files name a folder of this machine" >&2
    exit 1
fi
if find "$prefix" -name '*_p.h' | grep . >&2; then
    echo "install: private headers were installed" >&2
    exit 1
fi
consumer "$prefix" shared

consumer --tree "$build" "from the build tree"

"$root/scripts/check-headers.sh" --installed "$prefix"
"$root/scripts/check-abi.sh" "$prefix"

if [ -n "$quick" ]; then
    exit 0
fi

# The static library: the value types must be registered all the same.
cmake -G Ninja -S "$root" -B "$work/static-build" -DCMAKE_BUILD_TYPE=Release \
    "${hasty[@]}" -DBUILD_SHARED_LIBS=OFF -DLIVETABLE_TESTS=OFF -DLIVETABLE_EXAMPLES=OFF "${launcher[@]}" \
    >"$work/log" 2>&1
cmake --build "$work/static-build" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
}
cmake --install "$work/static-build" --prefix "$work/static" >/dev/null
consumer "$work/static" static
consumer --tree "$work/static-build" "from the static build tree"

# A program that takes the sources into its own build.
mkdir "$work/fetch"
cat >"$work/fetch/CMakeLists.txt" <<EOT
cmake_minimum_required(VERSION 3.22)
project(fetching LANGUAGES CXX)
include(FetchContent)
FetchContent_Declare(LiveTable SOURCE_DIR "$root")
FetchContent_MakeAvailable(LiveTable)
add_executable(consumer "$example/main.cpp")
target_link_libraries(consumer PRIVATE LiveTable::LiveTable LiveTable::Model)
install(TARGETS consumer)
EOT
cmake -G Ninja -S "$work/fetch" -B "$work/fetch/build" -DCMAKE_BUILD_TYPE=Release \
    "${hasty[@]}" "${launcher[@]}" >"$work/log" 2>&1
cmake --build "$work/fetch/build" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
}
consumer --run "$work/fetch/build/consumer" "with FetchContent"
