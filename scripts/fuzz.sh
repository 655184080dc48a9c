#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the fuzz targets with clang and runs each for SECONDS (60):
#
#     fuzz.sh [SECONDS [TARGET...]]
#
# New inputs stay in build/fuzz/corpus; what crashes is left as build/fuzz/crash-* and belongs, once
# the fault is mended, into fuzz/kept.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -eq 0 ] || shift
[ $# -gt 0 ] || set -- tableio rowlist compressor settingsreader settingsmap \
    valuetext bcdii operations
cmake --preset fuzz >/dev/null
# shellcheck disable=SC2046 # a word for each target
cmake --build --preset fuzz -j"${JOBS:-2}" --target fuzz_canary $(printf 'fuzz_%s ' "$@")
if build/fuzz/fuzz/fuzz_canary -seed=1 -max_total_time=60 -artifact_prefix=build/fuzz/canary- \
    -verbosity=0 2>build/fuzz/canary.log || ! grep -q heap-buffer-overflow build/fuzz/canary.log; then
    echo "fuzz.sh: the planted fault was not found" >&2
    exit 1
fi
export QT_LOGGING_RULES='QGuiLog=false' # tells what of each input is no good
for name; do
    corpus=build/fuzz/corpus/$name
    mkdir -p "$corpus"
    size=8192 words=
    case $name in
    settings*) words=fuzz/settings.dict ;;
    valuetext) words=fuzz/values.dict size=300 ;;
    bcdii) size=120 ;;
    operations) size=500 ;;
    *) words=fuzz/tablefile.dict ;;
    esac
    echo "== $name, $seconds s"
    "build/fuzz/fuzz/fuzz_$name" -max_total_time="$seconds" -max_len=$size -timeout=25 \
        -rss_limit_mb=2048 ${words:+-dict=$words} -artifact_prefix=build/fuzz/crash- \
        -print_final_stats=1 -verbosity=0 "$corpus" "fuzz/seeds/$name" \
        "fuzz/kept/$name"
done
