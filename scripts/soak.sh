#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Plays the market board's session over and over in one process, with volatilities, checks, saving
# and loading. Fails on a difference, and when memory grows by more than 1 % after the first pass.
# usage: soak.sh [MINUTES [MARKETBOARD]]    60 minutes, the release build's board
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
place=$(mktemp -d)
# What malloc keeps aside for the next request would count as in use, and grows for some fifty passes.
export GLIBC_TUNABLES=glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0
trap 'rm -rf -- "$place"' EXIT
"${2:-$root/build/release/examples/marketboard/marketboard}" --soak "${1:-60}" --smile --verify \
    --save "$place/saved" --settings-dir "$place/settings"
