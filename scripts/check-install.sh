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
work=$(mktemp -d "${TMPDIR:-/tmp}/livetable-install.XXXXXX")
trap 'rm -rf -- "$work"' EXIT
launcher=()
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

say() { printf 'install: %s\n' "$*"; }

run() { # what program: must say that all is well, started from another folder than its own
    local name=$1 program=$2
    mkdir -p "$work/data"
    rm -f "$work"/data/*
    if ! LD_LIBRARY_PATH=${3-} "$program" "$work/data" >"$work/output" 2>&1 ||
        ! grep -qx 'all as expected' "$work/output"; then
        cat "$work/output" >&2
        say "the consumer built $name does not work" >&2
        exit 1
    fi
    say "consumer built $name: works"
}

with_cmake() { # folder arguments...
    local folder=$1
    shift
    cmake -G Ninja -S "$example" -B "$folder" -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" "$@" \
        >"$work/log" 2>&1 && cmake --build "$folder" >>"$work/log" 2>&1 || {
        cat "$work/log" >&2
        exit 1
    }
}

three_ways() { # prefix name
    local prefix=$1 name=$2 lib pc
    lib=$(dirname "$(find "$prefix" -name 'liblivetable.*' ! -type d | head -n 1)")
    pc=$lib/pkgconfig

    with_cmake "$work/$name-cmake" -DCMAKE_PREFIX_PATH="$prefix"
    run "with CMake ($name)" "$work/$name-cmake/consumer"

    local flags libs
    read -r -a flags <<<"$(PKG_CONFIG_PATH=$pc pkg-config --cflags livetable)"
    read -r -a libs <<<"$(PKG_CONFIG_PATH=$pc pkg-config --libs livetable)"
    g++ -std=c++17 -fPIC -Wall -Wextra "${flags[@]}" "$example/main.cpp" -o "$work/$name-pc" \
        "${libs[@]}"
    run "with pkg-config ($name)" "$work/$name-pc" "$lib"

    mkdir "$work/$name-qmake"
    (
        cd -- "$work/$name-qmake"
        qmake -qt=5 LIVETABLE="$prefix" "$example/consumer.pro" && make
    ) >"$work/log" 2>&1 || {
        cat "$work/log" >&2
        exit 1
    }
    run "with qmake ($name)" "$work/$name-qmake/consumer" "$lib"
}

# Into an empty prefix, which is then moved: nothing may have kept its name.
cmake --install "$build" --prefix "$work/first" >/dev/null
mv -- "$work/first" "$work/moved"
prefix=$work/moved
if grep -rIl -e "$root" -e "$work/first" "$prefix" | grep . >&2; then
    say "these installed files name a folder of this machine" >&2
    exit 1
fi
if find "$prefix" -name '*_p.h' | grep . >&2; then
    say "private headers were installed" >&2
    exit 1
fi
three_ways "$prefix" shared

with_cmake "$work/tree" -DLiveTable_DIR="$build"
run "from the build tree" "$work/tree/consumer"

"$root/scripts/check-headers.sh" --installed "$prefix"
"$root/scripts/check-abi.sh" "$prefix"

if [ -n "$quick" ]; then
    exit 0
fi

# The static library: the value types must be registered all the same.
cmake -G Ninja -S "$root" -B "$work/static-build" -DCMAKE_BUILD_TYPE=Release \
    -DBUILD_SHARED_LIBS=OFF -DLIVETABLE_TESTS=OFF -DLIVETABLE_EXAMPLES=OFF "${launcher[@]}" \
    >"$work/log" 2>&1
cmake --build "$work/static-build" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
}
cmake --install "$work/static-build" --prefix "$work/static" >/dev/null
three_ways "$work/static" static
with_cmake "$work/static-tree" -DLiveTable_DIR="$work/static-build"
run "from the static build tree" "$work/static-tree/consumer"

# A program that takes the sources into its own build.
mkdir "$work/fetch"
cat >"$work/fetch/CMakeLists.txt" <<EOT
cmake_minimum_required(VERSION 3.22)
project(fetching LANGUAGES CXX)
include(FetchContent)
FetchContent_Declare(LiveTable SOURCE_DIR "$root")
FetchContent_MakeAvailable(LiveTable)
add_executable(consumer "$example/main.cpp")
target_link_libraries(consumer PRIVATE LiveTable::LiveTable)
install(TARGETS consumer)
EOT
cmake -G Ninja -S "$work/fetch" -B "$work/fetch/build" -DCMAKE_BUILD_TYPE=Release \
    "${launcher[@]}" >"$work/log" 2>&1
cmake --build "$work/fetch/build" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
}
run "with FetchContent" "$work/fetch/build/consumer"
