#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The shape of the tree, in rules that need no compiler:
#   floor     a file includes only headers of its own floor or of a lower one; table/ knows index/
#             by forward declaration, and table.cpp alone includes it; model/, which stands beside
#             src/database, is above all
#   private   a header that ends in _p.h is included by the library only, and by no public header;
#             model/ includes only public headers of the library
#   function  a function has at most 70 lines, a file at most 1000, a line at most 100 characters
#   file      every file starts with its licence, every header has #pragma once, and a .cpp of the
#             library is named in the CMakeLists.txt of its folder; scripts say their licence, too
# A rule can be excused where it must be, by a comment with a reason, on the line before or on it:
#   // excuse(floor): reason      likewise (private), (function), (line); (file) stands anywhere
# usage: scripts/check-floors.sh [root of the tree]
set -euo pipefail
unset CDPATH
export LC_ALL=C

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
cd -- "${1:-$root}"

folders=()
for folder in src tests examples apps benchmarks fuzz; do
    if [ -d "$folder" ]; then
        folders+=("$folder")
    fi
done

files=()
while IFS= read -r -d '' file; do
    files+=("$file")
done < <(find "${folders[@]}" -type f \( -name '*.h' -o -name '*.cpp' \) -print0 | sort -z)
if [ ${#files[@]} -eq 0 ]; then
    echo "floors: found no file to check" >&2
    exit 1
fi

awk '
function fail(line, rule, text) {
    if (rule in excused && line - excused[rule] <= 1)
        return
    printf "%s:%d: %s: %s\n", file, line, rule, text
    failures++
}

function begin_file() {
    if (file != "")
        end_file()
    file = FILENAME
    files++
    lines = 0
    pragma = 0
    fileExcuse = 0
    blockStart = 0
    declaration = 0
    isHeader = file ~ /\.h$/
    isPrivate = file ~ /_p\.h$/
    folder = ""
    if (file ~ /^src\/database\/[^\/]+\//) {
        folder = file
        sub(/^src\/database\//, "", folder)
        sub(/\/.*/, "", folder)
        if (!(folder in floor)) {
            printf "%s:1: floor: the folder %s has no floor\n", file, folder
            failures++
        }
    } else if (file ~ /^src\/model\//) {
        folder = "model"
    }
    split("", excused)
}

function end_file() {
    if (lines > 1000 && !fileExcuse) {
        printf "%s:%d: file: %d lines, 1000 are allowed\n", file, lines, lines
        failures++
    }
    if (isHeader && !pragma) {
        printf "%s:1: file: no #pragma once\n", file
        failures++
    }
}

# The rules for one #include "..." line.
function check_include(path,    other, other_private) {
    if (path ~ /\.moc$/ || path ~ /^moc_/)
        return
    other_private = path ~ /_p\.h$/
    other = path
    if (other !~ /\//)
        other = ""
    sub(/\/.*/, "", other)
    if (folder == "") {
        if (other_private && other in floor)
            fail(FNR, "private", path " is not for use outside the library")
        return
    }
    if (!(other in floor)) {
        fail(FNR, "floor", "\"" path "\" is not named from src/database, as \"folder/file.h\"")
        return
    }
    if (isHeader && !isPrivate && other_private)
        fail(FNR, "private", "a public header includes " path)
    if (folder == "model" && other != "model" && other_private)
        fail(FNR, "private", path " is not for use outside the library")
    if (floor[other] <= floor[folder])
        return
    if (file == "src/database/table/table.cpp" && other == "index")
        return
    fail(FNR, "floor", folder " (floor " floor[folder] ") includes " path " (floor " floor[other] ")")
}

# Functions are found by their shape: the opening brace stands alone on a line, and the closing one
# alone on a later line of the same depth. Types and enumerations share that shape and are told by
# the word that their declaration starts with.
function check_function(    indent, start) {
    if ($0 ~ /^ *\{$/ && !blockStart) {
        start = declaration ? declaration : FNR
        if (head ~ /^(template|class|struct|union|enum)([ <]|$)/ && head !~ /\)( (const|noexcept|override))*$/)
            return
        blockIndent = match($0, /\{/)
        blockStart = start
        blockExcused = ("function" in excused) && start - excused["function"] <= 1
        return
    }
    if (blockStart && $0 ~ /^ *\}[;,)]*$/ && match($0, /\}/) == blockIndent) {
        if (FNR - blockStart + 1 > 70 && !blockExcused) {
            printf "%s:%d: function: %d lines, 70 are allowed\n", file, blockStart, \
                FNR - blockStart + 1
            failures++
        }
        blockStart = 0
    }
}

# Where the declaration that this line belongs to starts, and the text it starts with.
function track_declaration() {
    if ($0 ~ /^ *$/ || $0 ~ /^ *(\/\/|\/?\*|#)/ || $0 ~ /[;{}:]$/) {
        declaration = 0
        head = ""
        return
    }
    if (!declaration) {
        declaration = FNR
        head = $0
        sub(/^ +/, "", head)
    } else if ($0 !~ /^ *\{/) {
        if (head ~ /^template/)
            head = $0
        else
            head = head " " $0
        sub(/^ +/, "", head)
    }
}

BEGIN {
    count = split("base 0 bcdii 1 value 2 container 2 concurrent 2 pricing 2 table 3 index 4 " \
                  "join 5 io 6 settings 6 runtime 7 model 8", word, " ")
    for (i = 1; i < count; i += 2)
        floor[word[i]] = word[i + 1] + 0
}

FNR == 1 {
    begin_file()
    if ($0 !~ /^\/\/ SPDX-License-Identifier: MIT$/)
        fail(1, "file", "the first line is not // SPDX-License-Identifier: MIT")
}

{
    lines = FNR
    if (match($0, /\/\/ excuse\([a-z]+\): ........../)) {
        rule = $0
        sub(/.*\/\/ excuse\(/, "", rule)
        sub(/\).*/, "", rule)
        excused[rule] = FNR
        if (rule == "file")
            fileExcuse = 1
    }
    # A character of UTF-8 counts once, whatever its bytes.
    width = $0
    gsub(/[\200-\277]/, "", width)
    if (length(width) > 100)
        fail(FNR, "line", length(width) " characters, 100 are allowed")
    if ($0 ~ /^#pragma once$/)
        pragma = 1
    if ($0 ~ /^#[ \t]*include[ \t]+"/) {
        path = $0
        sub(/^[^"]*"/, "", path)
        sub(/".*/, "", path)
        check_include(path)
    }
    check_function()
    if (!($0 ~ /^ *\{$/))
        track_declaration()
    else
        declaration = 0
}

END {
    if (file != "")
        end_file()
    if (failures) {
        printf "floors: %d faults in %d files\n", failures, files
        exit 1
    }
    printf "floors: %d files\n", files
}
' "${files[@]}"

# A source that no CMakeLists.txt names is neither built nor checked by a compiler.
status=0
for file in "${files[@]}"; do
    case "$file" in
    src/database/*/*.cpp | src/model/*.cpp)
        list=${file%/*}/CMakeLists.txt
        if ! grep -qF -- "${file##*/}" "$list" 2>/dev/null; then
            echo "$file:1: file: not named in $list"
            status=1
        fi
        ;;
    esac
done

# What is no C++ says its licence near its top, too.
while IFS= read -r -d '' file; do
    if ! head -n 3 -- "$file" | grep -q 'SPDX-License-Identifier: MIT'; then
        echo "$file:1: file: no SPDX-License-Identifier: MIT"
        status=1
    fi
done < <(find . \( -path ./build -o -path './build-*' -o -path ./.git \) -prune -o -type f \
    \( -name '*.sh' -o -name '*.py' -o -name '*.cmake' -o -name CMakeLists.txt -o -name '*.in' \
    -o -name '*.css' -o -name '*.map' -o -name '*.pro' \) -print0)
exit $status
