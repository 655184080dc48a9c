#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Every public header compiles alone, included twice, under the strictest settings that a user may
# have, with g++ and (when it is there) clang++. Nothing is linked or written.
# usage: scripts/check-headers.sh [header, as programs include it...]
#        scripts/check-headers.sh --installed PREFIX     those that were installed there, by the name
#                                 that users give them, with sign conversions as errors, too
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
source_dir=$root/src/database
qt=$(qmake -qt=5 -query QT_INSTALL_HEADERS 2>/dev/null || qmake -query QT_INSTALL_HEADERS)

flags=(-std=c++17 -fPIC -fsyntax-only -x c++
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Werror
    -DQT_NO_KEYWORDS -DQT_NO_FOREACH -DQT_NO_CAST_FROM_ASCII -DQT_NO_CAST_TO_ASCII
    "-I$source_dir" "-I$root/src" -isystem "$qt" -isystem "$qt/QtCore" -isystem "$qt/QtConcurrent")

compilers=(g++)
if command -v clang++ >/dev/null 2>&1; then
    compilers+=(clang++)
fi

headers=()
if [ "${1-}" = --installed ]; then
    prefix=$2
    flags=("${flags[@]/-I$source_dir/-I$prefix/include}")
    flags=("${flags[@]/-Wno-sign-conversion/-Wsign-conversion}")
    while IFS= read -r file; do
        headers+=("$file")
    done < <(cd -- "$prefix/include" && find livetable -name '*.h' ! -name '*-inl.h' | sort)
    # The headers that are named after classes only lead to the others: one look at all of them.
    (cd -- "$prefix/include" && find livetable -type f ! -name '*.h' -printf '#include <%p>\n') |
        g++ "${flags[@]}" -
elif [ $# -gt 0 ]; then
    headers=("$@")
else
    cd -- "$source_dir"
    while IFS= read -r -d '' file; do
        file=${file#./}
        headers+=("${file#../}")
    done < <(find . ../model -type f -name '*.h' ! -name '*_p.h' ! -name '*-inl.h' -print0 | sort -z)
fi
if [ ${#headers[@]} -eq 0 ]; then
    echo "headers: found no header to check" >&2
    exit 1
fi

check_one() { # compiler header flags...
    local compiler=$1 header=$2
    shift 2
    printf '#include <%s>\n#include <%s>\n' "$header" "$header" | "$compiler" "$@" - || {
        echo "headers: $header does not compile alone with $compiler" >&2
        return 1
    }
}
export -f check_one

for compiler in "${compilers[@]}"; do
    for header in "${headers[@]}"; do
        printf '%s\0%s\0' "$compiler" "$header"
    done
done | xargs -0 -n 2 -P "$(nproc)" bash -c 'check_one "${@: -2:1}" "${@: -1}" "${@:1:$#-2}"' \
    check "${flags[@]}" || exit 1
# Most programs use Qt's own keywords (slots, signals, emit, foreach): all headers at once with them.
printf '#include <%s>\n' "${headers[@]}" | g++ "${flags[@]/-DQT_NO_*/-DQT_DEPRECATED_WARNINGS}" - || {
    echo "headers: they do not compile together where Qt's keywords are on" >&2
    exit 1
}
echo "headers: ${#headers[@]} headers compile alone with ${compilers[*]}"
