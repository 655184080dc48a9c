#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Which lines and branches of src/ the tests reach, by folder, and the files that fall short. Fails
# when the whole or one of the folders that keep numbers, rows and files does not reach its share of
# lines. The pages of all files are written to build/coverage/html.
# usage: coverage.sh [arguments of ctest]    which, when given, leave the shares unjudged
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
build=${COVERAGE_BUILD:-$root/build/coverage}
"$root/scripts/deps.sh" build test nightly
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=None -DLIVETABLE_EXAMPLES=OFF \
    -DLIVETABLE_BOARD=OFF -DCMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER-}" \
    "-DCMAKE_CXX_FLAGS=-O1 -g1 --coverage -fprofile-update=atomic -fno-inline" >/dev/null
cmake --build "$build" --parallel "$(nproc)"
find "$build" -name '*.gcda' -delete
failed=0
ctest --test-dir "$build" --output-on-failure --parallel "$(nproc)" -E 'model|^kill_' "$@" || failed=1
# A seed for each kind of table does for the random models: a thousand reach no new lines. Nor does
# what is killed, since it writes no counts.
for seed in 4 5 6 7; do
    LIVETABLE_SEED=$seed "$build/tests/index/tst_model" -silent firstSeeds tablesOfSeveralLeaves &&
        LIVETABLE_SEED=$seed "$build/tests/join/tst_join_model" -silent &&
        LIVETABLE_SEED=$seed "$build/tests/model/tst_tablemodel" -silent || failed=1
done

cd -- "$build"
mkdir -p html
gcovr --root "$root" --filter "$root/src/" --exclude-throw-branches --exclude-unreachable-branches \
    --gcov-ignore-parse-errors --json-summary coverage.json --html-details html/index.html \
    --object-directory "$build" "$build"
python3 - coverage.json $# <<'EOT'
import collections
import json
import sys

wanted = {"src": 92, "src/database/bcdii": 97, "src/database/io": 97, "src/database/index": 97}
sums = collections.defaultdict(lambda: [0, 0, 0, 0])
files = json.load(open(sys.argv[1]))["files"]
for file in files:
    folder = file["filename"].rpartition("/")[0]
    for name in ("src", folder):
        for i, kind in enumerate(("line_covered", "line_total", "branch_covered", "branch_total")):
            sums[name][i] += file[kind]


def share(part, whole):
    return 100 * part / whole if whole else 100.0


short = []
print(f"{'folder':28}{'lines':>14}{'%':>7}{'branches':>14}{'%':>7}")
for name, (lines, allLines, branches, allBranches) in sorted(sums.items()):
    percent = share(lines, allLines)
    print(f"{name:28}{f'{lines}/{allLines}':>14}{percent:7.1f}"
          f"{f'{branches}/{allBranches}':>14}{share(branches, allBranches):7.1f}")
    if percent < wanted.get(name, 0):
        short.append(f"{name}: {percent:.1f} % of the lines, {wanted[name]} % are wanted")
print("files below 90 % of the lines or 85 % of the branches:")
for file in sorted(files, key=lambda file: file["line_percent"]):
    branches = share(file["branch_covered"], file["branch_total"])
    if file["line_percent"] < 90 or branches < 85:
        print(f"  {file['filename']:46}{file['line_percent']:6.1f}{branches:7.1f}")
if sys.argv[2] == "0" and short:
    sys.exit("\n".join(short))
EOT
exit $failed
