#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds everything and runs all tests: scripts/test.sh [--asan|--debug|--tsan] [arguments of ctest]
# Without an option the Release build is tested; --asan builds with the address and
# undefined-behaviour sanitizers.
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)

preset=release
case "${1-}" in
--asan | --debug | --tsan)
    preset=${1#--}
    shift
    ;;
esac

"$root/scripts/deps.sh" build test
cd -- "$root"
cmake --preset "$preset" -DLIVETABLE_EXAMPLES=ON -DLIVETABLE_TESTS=ON
cmake --build --preset "$preset" --parallel "$(nproc)"

export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export ASAN_OPTIONS="detect_stack_use_after_return=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
# A machine that others load takes its time; what hangs ends all the same.
export QTEST_FUNCTION_TIMEOUT=${QTEST_FUNCTION_TIMEOUT:-1200000} # ms
exec ctest --preset "$preset" --no-tests=error --parallel "$(nproc)" "$@"
