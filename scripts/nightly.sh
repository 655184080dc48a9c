#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What takes too long for every change: memcheck over the test programs, long random tests, long
# fuzzing, all planted faults, coverage, clang-tidy, a soak, the full benchmarks. All steps run; the
# exit code tells whether one failed.
# usage: nightly.sh [--short]    --short gives each step a minute or so
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
cd -- "$root"
seconds=3600 seeds=200 minutes=60 faults=() coverage=() tidy=() bench=() programs=()
if [ "${1-}" = --short ]; then
    seconds=10 seeds=2 minutes=1 faults=(--every 36) bench=(--quick) programs=(tst_base tst_bcdii)
    coverage=(-R 'tst_base|tst_bcdii') tidy=(src/database/base)
fi
failed=()

step() { # name command...
    local name=$1 from=$SECONDS
    shift
    echo "=== $name"
    if "$@"; then
        echo "=== $name: passed ($((SECONDS - from)) s)"
    else
        echo "=== $name: FAILED ($((SECONDS - from)) s)"
        failed+=("$name")
    fi
}

memcheck() { # the random tests take days under it: they run with few seeds
    local program name
    export QT_ENABLE_REGEXP_JIT=0 # its code reads beyond what it needs and looks at it later
    while IFS= read -r program; do
        name=$(basename "$program")
        [ ${#programs[@]} -eq 0 ] || [[ " ${programs[*]} " == *" $name "* ]] || continue
        echo "$name"
        LIVETABLE_SEED=1 QTEST_FUNCTION_TIMEOUT=3600000 valgrind -q --error-exitcode=9 \
            --suppressions=tests/valgrind.supp \
            --leak-check=full --errors-for-leak-kinds=definite "$program" -silent || return 1
    done < <(find build/release/tests -type f -name 'tst_*' -executable | sort)
}

random() {
    local seed
    for ((seed = RANDOM * 1000; seeds-- > 0; seed++)); do
        echo "LIVETABLE_SEED=$seed"
        LIVETABLE_SEED=$seed build/release/tests/index/tst_model -silent &&
            LIVETABLE_SEED=$seed build/release/tests/join/tst_join_model -silent || return 1
    done
}

step packages scripts/deps.sh build test fuzz nightly bench
step 'build and tests' scripts/test.sh
step memcheck memcheck
step 'random tests' random
step 'fuzz targets' scripts/fuzz.sh "$seconds"
step 'planted faults' nice scripts/mutate.py --work build/mutate --jobs "$(nproc)" "${faults[@]}"
step coverage scripts/coverage.sh "${coverage[@]}"
step clang-tidy scripts/check-tidy.sh "${tidy[@]}"
step soak scripts/soak.sh "$minutes"
step benchmarks scripts/bench.sh "${bench[@]}"

if [ ${#failed[@]} -gt 0 ]; then
    printf 'failed: %s\n' "${failed[@]}"
    exit 1
fi
