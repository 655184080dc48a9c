#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds examples/consumer against an installed library with CMake, pkg-config and qmake, and runs
# each.
# usage: scripts/check-consumer.sh PREFIX NAME              NAME is what the messages call it
#        scripts/check-consumer.sh --tree BUILD NAME        with CMake against a build tree
#        scripts/check-consumer.sh --run PROGRAM NAME       runs one that was built elsewhere
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
example=$root/examples/consumer
work=$(mktemp -d "${TMPDIR:-/tmp}/livetable-consumer.XXXXXX")
trap 'rm -rf -- "$work"' EXIT
launcher=()
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

say() { printf 'consumer: %s\n' "$*"; }

run() { # what program: must say that all is well, started from another folder than its own
    local name=$1 program=$2
    mkdir -p "$work/data"
    rm -f "$work"/data/*
    if ! LD_LIBRARY_PATH=${3-} "$program" "$work/data" >"$work/output" 2>&1 ||
        ! grep -qx 'all as expected' "$work/output"; then
        cat "$work/output" >&2
        say "what was built $name does not work" >&2
        exit 1
    fi
    say "built $name: works"
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
    lib=$(dirname "$(find "$prefix" -name 'liblivetable[.]*' ! -type d | head -n 1)")
    pc=$lib/pkgconfig

    with_cmake "$work/$name-cmake" -DCMAKE_PREFIX_PATH="$prefix"
    run "with CMake ($name)" "$work/$name-cmake/consumer"

    local flags libs
    read -r -a flags <<<"$(PKG_CONFIG_PATH=$pc pkg-config --cflags livetable-model)"
    read -r -a libs <<<"$(PKG_CONFIG_PATH=$pc pkg-config --libs livetable-model)"
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

case "$1" in
--tree)
    with_cmake "$work/tree" -DLiveTable_DIR="$2"
    run "$3" "$work/tree/consumer"
    ;;
--run) run "$3" "$2" ;;
*) three_ways "$1" "$2" ;;
esac
