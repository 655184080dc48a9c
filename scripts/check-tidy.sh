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
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_AUTOGEN_ORIGIN_DEPENDS=OFF >/dev/null
cmake --build "$build" --target livetable_autogen livetable_model_autogen >/dev/null # what moc makes
mapfile -t files < <(find "$@" -name '*.cpp' | sort)
[ ${#files[@]} -gt 0 ] || { echo "tidy: no file to check" >&2; exit 1; }
output=$(run-clang-tidy -quiet -p "$build" -j "$(nproc)" "${files[@]/#/$root/}" 2>/dev/null || true)
if ! grep -q "clang-tidy" <<<"$output"; then # it names each of its runs
    echo "tidy: it did not run" >&2
    exit 1
fi
if findings=$(grep -E "(warning|error): " <<<"$output" | sort -u); then
    echo "$findings"
    exit 1
fi
echo "tidy: ${#files[@]} files"
