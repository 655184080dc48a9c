#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the market board and plays its built-in session. Arguments go to the board, for instance
#   scripts/demo.sh --top 5 --verify
#   scripts/demo.sh --data some/folder
# Standard output is the board's alone; the build speaks on standard error.
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)

"$root/scripts/deps.sh" build
(
    cd -- "$root"
    cmake --preset release -DLIVETABLE_EXAMPLES=ON -DLIVETABLE_TESTS=OFF
    cmake --build --preset release --parallel "$(nproc)" --target marketboard
) >&2

# From the caller's own folder, so that a relative --data means what it says.
exec "$root/build/release/examples/marketboard/marketboard" "$@"
