#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The programs of a page are taken out as they stand there, and a page that hides code from the
# checks is refused; the filter tells doxygen what a reader of a header sees.
set -euo pipefail

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd -P)
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
failures=0

fail() {
    printf 'FAIL: %s\n' "$1"
    failures=$((failures + 1))
}

page() { # lines...
    rm -rf -- "$work/out"
    mkdir "$work/out"
    printf '%s\n' "$@" >"$work/page.md"
    python3 "$root/scripts/docs_code.py" "$work/out" "$work/page.md" >"$work/said" 2>&1
}
code='```cpp' text='```text' end='```'

page '<!-- main -->' "$code" 'one();' "$end" '<!-- prints -->' "$text" '1' "$end" \
    '<!-- include -->' "$code" '#include <two>' "$end" '<!-- main -->' "$code" 'two();' "$end" \
    '<!-- prints -->' "$text" '2' "$end" || fail 'a page in order'
grep -q two "$work/out/page-01.cpp" && fail 'a step has lines of the next one'
[ "$(grep -nE '#include <two>|one|two\(' "$work/out/page-02.cpp" | cut -d: -f2- | tr -d '\n')" = \
    '#include <two>one();two();' ] || fail 'the second step is not the sum of both'
[ "$(tr '\n' ' ' <"$work/out/page-02.txt")" = '1 2 ' ] || fail 'what the second step prints'

page "$code" 'lost();' "$end" && fail 'code without a marker is not refused'
page '<!-- programm -->' "$code" 'lost();' "$end" && fail 'an unknown marker is not refused'
page '<!-- main -->' "$code" 'lost();' "$end" && fail 'code that is never run is not refused'

printf '%s\n' '/// Half-way:' '///' '///     use(\n);' 'class Two' '{' 'public:' '    /// Both \n @Rect.' \
    '    int a();' '    int b();' '' '    int c();' '    int d() override;' '};' >"$work/two.h"
python3 "$root/docs/doxygen/filter.py" "$work/two.h" >"$work/filtered"
for want in '/// @code{.cpp}' '/// use(\n); @endcode' '    /// Both \\n &#64;Rect.' \
    '    /** Both \\n &#64;Rect. */ int b();' '    int c();' '    int d() override;'; do
    grep -qxF -- "$want" "$work/filtered" || fail "the filter does not write: $want"
done

if [ "$failures" -ne 0 ]; then
    exit 1
fi
echo 'docs: pages and headers are read as they should be'
