#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fails when a source file is not as clang-format would write it. `scripts/check-format.sh --fix`
# writes it so. Other arguments are files to look at instead of all.
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
mode=(--dry-run -Werror)
if [ "${1-}" = --fix ]; then
    mode=(-i)
    shift
fi
command -v clang-format >/dev/null 2>&1 || "$root/scripts/deps.sh" check

files=()
if [ $# -gt 0 ]; then
    files=("$@")
else
    while IFS= read -r -d '' file; do
        files+=("$file")
    done < <(
        for folder in src tests examples apps benchmarks fuzz; do
            if [ -d "$root/$folder" ]; then
                find "$root/$folder" -type f \( -name '*.h' -o -name '*.cpp' \) -print0
            fi
        done
    )
fi
if [ ${#files[@]} -eq 0 ]; then
    echo "format: found no file to check" >&2
    exit 1
fi
if ! clang-format --style=file "${mode[@]}" "${files[@]}"; then
    echo "format: run scripts/check-format.sh --fix" >&2
    exit 1
fi
echo "format: ${#files[@]} files"
