#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the benchmarks, ours and the peers in turn, in rounds, and writes benchmarks/RESULTS.md and
# docs/growth.svg. Fails only when a structure is not in order or does not hold what it must.
# usage: scripts/bench.sh [--quick] [--rounds=N] [WORKLOAD...]
#   WORKLOAD  W1 W2 W2c W3 W4 W5 W8 S1 N1 N3 J M IO pricing growth    (none named: all)
#   --rounds  how often each contender has its turn; 3 if nothing is said
#   --quick   100,000 rows and one round, only printed; `growth` only when it is named
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
cd -- "$root"
command="scripts/bench.sh${*:+ $*}"
known=(W1 W2 W2c W3 W4 W5 W8 S1 N1 N3 J M IO pricing growth)
rows=1000000
updates=200000
rounds=3
wanted=()
quick=
for word in "$@"; do
    if [ "$word" = --quick ]; then
        quick=yes
        rows=100000
        updates=20000
        rounds=1
    elif [[ "$word" =~ ^--rounds=[1-9][0-9]?$ ]]; then
        rounds=${word#*=}
    elif [[ " ${known[*]} " == *" $word "* ]]; then
        wanted+=("$word")
    else
        echo "bench: there is no workload $word (there are: ${known[*]})" >&2
        exit 2
    fi
done
if [ ${#wanted[@]} -eq 0 ]; then
    wanted=("${known[@]}")
    [ -z "$quick" ] || unset 'wanted[-1]' # growth
fi

scripts/deps.sh build
scripts/deps.sh bench || echo "bench: peers that are not installed are left out" >&2
cmake --preset release -DLIVETABLE_BENCHMARKS=ON
cmake --build --preset release --parallel "$(nproc)" --target benchmarks
programs=build/release/benchmarks

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
lines=$work/lines
: >"$lines"

is_wanted() { [[ " ${wanted[*]} " == *" $1 "* ]]; }
run() { "$programs/$@" | tee -a "$lines"; }

views=()
for workload in W1 W2 W3 W4 W5 W8; do
    if is_wanted $workload; then
        views+=($workload)
    fi
done
numbers=()
for workload in N1 N3; do
    if is_wanted $workload; then
        numbers+=($workload)
    fi
done

for ((round = 1; round <= rounds; round++)); do
    echo "--- round $round of $rounds"
    for contender in $("$programs/bench_views" --list); do
        if [ "$contender" = livetable-compare ]; then
            if is_wanted W2c; then
                run bench_views "$contender" --rows $rows --updates $updates --label W2c W2
            fi
        elif [ ${#views[@]} -gt 0 ]; then
            run bench_views "$contender" --rows $rows --updates $updates "${views[@]}"
        fi
    done
    if is_wanted S1; then
        for contender in $("$programs/bench_sort" --list); do
            run bench_sort "$contender" --rows $rows
        done
    fi
    if [ ${#numbers[@]} -gt 0 ]; then
        run bench_numbers "${numbers[@]}"
    fi
    if is_wanted J; then
        run bench_join $rows $((rows / 100)) $updates
    fi
    if is_wanted M; then
        run bench_model $rows $updates
    fi
    if is_wanted pricing; then
        run bench_pricing 3
    fi
    if is_wanted IO; then
        run bench_tableio "$work" $rows
    fi
    if is_wanted growth; then
        for growing in 10000 100000 1000000 5000000; do
            run bench_views livetable --rows $growing --label growth-$growing-4 W2
        done
        for growing in 1 2 8; do
            run bench_views livetable --rows $rows --views $growing --label growth-$rows-$growing W2
        done
    fi
done

if [ -z "$quick" ]; then
    scripts/bench_results.py "$command" "$rounds" <"$lines"
    scripts/readme_speed.py
fi
