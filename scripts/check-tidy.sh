#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fails on what clang-tidy finds in src/ by the checks of .clang-tidy, which tells why each is there.
# usage: check-tidy.sh [folder or file...]    src
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
cd -- "$root"
[ $# -gt 0 ] || set -- src
command -v run-clang-tidy >/dev/null 2>&1 || scripts/deps.sh nightly
build=${TIDY_BUILD:-build/tidy}
# A Debug build, for the assertions tell the analyzer what holds.
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
for info in "$build"/{src,apps}/*/CMakeFiles/*_autogen.dir/AutogenInfo.json; do
    [ ! -e "$info" ] || cmake -E cmake_autogen "$info" Debug # what moc makes, and no more than that
done
mapfile -t files < <(find "$@" -name '*.cpp' | sort)
[ ${#files[@]} -gt 0 ] || { echo "tidy: no file to check" >&2; exit 1; }
failed=0
output=$(run-clang-tidy -quiet -p "$build" -j "$(nproc)" "${files[@]/#/$root/}" 2>/dev/null |
    sed $'s/\e\\[[0-9;]*m//g') || failed=1
# What invokeMethod() allocates is the event queue's, which the analyzer cannot see.
not_ours='qobjectdefs\.h:.* Potential memory leak'
if findings=$(grep -E "(warning|error): " <<<"$output" | grep -v "$not_ours" | sort -u); then
    echo "$findings"
    exit 1
fi
runs=$(grep -cE "^[^ ]*clang-tidy[^ ]* .*-p=" <<<"$output" || true) # it names each of its runs
if [ "$failed" -ne 0 ] || [ "$runs" -lt ${#files[@]} ]; then
    echo "tidy: it ran over $runs of ${#files[@]} files" >&2
    exit 1
fi
echo "tidy: ${#files[@]} files"
