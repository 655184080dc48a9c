#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# scripts/check-floors.sh accepts a tree in order, and finds each fault planted in it.
set -euo pipefail

check=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd -P)/scripts/check-floors.sh
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
licence='// SPDX-License-Identifier: MIT'
failures=0

# A small tree in order: a function of 70 lines, a line of 100 characters in UTF-8, an allowed
# include of each kind.
plant_tree() {
    rm -rf -- "$work/tree"
    mkdir -p "$work/tree/src/database/"{base,table,index} "$work/tree/tests/table" \
        "$work/tree/src/model"
    cd -- "$work/tree"
    printf '%s\n#pragma once\n' "$licence" | tee src/database/base/{a,a_p}.h \
        src/database/index/i.h src/database/index/i_p.h src/database/table/t.h >/dev/null
    {
        printf '%s\n#include "base/a_p.h"\n#include "index/i.h"\n#include <QString>\n\n' "$licence"
        printf 'Type::Type(int value)\n    : value(value)\n{\n'
        yes '    step();' | head -n 66 || true
        printf '}\n\nclass Wide\n{\n'
        yes '    int member();' | head -n 80 || true
        printf '};\n// %s\n' "$(printf 'ж%.0s' {1..97})"
    } >src/database/table/table.cpp
    printf '%s\n#include "table/t.h"\n' "$licence" >tests/table/tst_t.cpp
    printf '%s\n' "${licence/\/\//#}" 'target_sources(livetable PRIVATE table.cpp t.h)' \
        >src/database/table/CMakeLists.txt
}

expect() { # what exit-code text
    local output code=0
    output=$("$check" "$work/tree" 2>&1) || code=$?
    if [ "$code" -ne "$2" ] || ! grep -qF -- "$3" <<<"$output"; then
        printf 'FAIL: %s: exit code %d, wanted %d and "%s" in:\n%s\n' "$1" "$code" "$2" "$3" "$output"
        failures=$((failures + 1))
    fi
}

fault() { # what text file line...: the lines are added at the end of the file
    plant_tree
    local what=$1 text=$2 file=$3
    shift 3
    printf '%s\n' "$@" >>"$file"
    expect "$what" 1 "$text"
}

plant_tree
expect 'a tree in order' 0 'floors: 7 files'

fault 'a back edge' 'base (floor 0) includes table/t.h (floor 3)' src/database/base/a.h \
    '#include "table/t.h"'
fault 'a header of table that includes an index' 'table (floor 3) includes index/i.h' \
    src/database/table/t.h '#include "index/i.h"'
fault 'an include without its folder' 'is not named from src/database' \
    src/database/table/t.h '#include "a.h"'
fault 'a private header in a public one' 'a public header includes base/a_p.h' \
    src/database/table/t.h '#include "base/a_p.h"'
fault 'a private header in a test' 'index/i_p.h is not for use outside the library' \
    tests/table/tst_t.cpp '#include "index/i_p.h"'
fault 'a private header in the model' 'index/i_p.h is not for use outside the library' \
    src/model/m.h '#include "index/i_p.h"'
fault 'a line of 101 characters' 'table.cpp:161: line: 101 characters' \
    src/database/table/table.cpp "// $(printf 'x%.0s' {1..98})"
fault 'an excuse without a reason' 'base (floor 0) includes' src/database/base/a.h \
    '#include "table/t.h" // excuse(floor):'

fault 'a file of 1001 lines' 'table.cpp:1001: file: 1001 lines' src/database/table/table.cpp \
    $(yes // | head -n 841 || true)

plant_tree
sed -i '0,/    step();/s//    step();\n    step();/' src/database/table/table.cpp
expect 'a function of 71 lines' 1 'table.cpp:6: function: 71 lines'
sed -i '0,/^Type::Type/s//\/\/ excuse(function): one table, read as a whole\nType::Type/' \
    src/database/table/table.cpp
expect 'an excused function' 0 'floors: 7 files'

plant_tree
sed -i '/pragma/d' src/database/base/a.h
expect 'a header that can be read twice' 1 'a.h:1: file: no #pragma once'

plant_tree
sed -i 1d src/database/base/a.h
expect 'a file without its licence' 1 'a.h:1: file: the first line is not'

fault 'a script without a licence' 'run.sh:1: file: no SPDX' run.sh '#!/bin/sh'

plant_tree
mkdir src/database/attic && cp src/database/base/a.h src/database/attic/
expect 'a folder without a floor' 1 'the folder attic has no floor'

plant_tree
echo "$licence" >src/database/table/lost.cpp
expect 'a source that is not built' 1 'lost.cpp:1: file: not named in'

plant_tree
printf '// excuse(floor): the planted edge of a test\n#include "table/t.h"\n' >>src/database/base/a.h
expect 'an excused edge' 0 'floors: 7 files'

rm -rf -- "$work/tree" && mkdir -p "$work/tree/src"
expect 'an empty tree' 1 'found no file to check'

if [ "$failures" -ne 0 ]; then
    exit 1
fi
echo 'floors: every planted fault was found'
