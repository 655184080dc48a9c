#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the fuzz targets with clang and runs each for SECONDS (60). New inputs stay in
# build/fuzz/corpus; what crashes is left as build/fuzz/crash-* and belongs, once the fault is
# mended, into fuzz/kept.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"${JOBS:-2}" --target fuzz_tableio fuzz_rowlist fuzz_compressor
for name in tableio rowlist compressor; do
    corpus=build/fuzz/corpus/$name
    mkdir -p "$corpus"
    echo "== $name, $seconds s"
    build/fuzz/fuzz/fuzz_$name -max_total_time="$seconds" -max_len=8192 -timeout=10 \
        -rss_limit_mb=2048 -dict=fuzz/tablefile.dict -artifact_prefix=build/fuzz/crash- \
        -print_final_stats=1 -verbosity=0 "$corpus" fuzz/seeds/$name fuzz/kept/$name
done
