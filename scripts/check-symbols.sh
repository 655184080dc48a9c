#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What the shared library exports: each symbol belongs to something that a public header marks with
# LIVETABLE_EXPORT, and no symbol of the kept list cmake/symbols.txt has gone.
# usage: scripts/check-symbols.sh library        fails when a symbol has gone, or a new one is not listed
#        scripts/check-symbols.sh --update library     writes the list
# A symbol may only go with a new major version: programs that were linked before need it.
set -euo pipefail
unset CDPATH
export LC_ALL=C

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
update=
if [ "${1-}" = --update ]; then
    update=1
    shift
fi
library=$1
kept=$root/cmake/symbols.txt

# The version node of the library's own tests is no part of the interface, and the type information
# of Qt's classes is where the compiler has put it.
exported() {
    nm -D --defined-only --with-symbol-versions "$library" |
        awk '$2 != "A" && $3 !~ /@@LIVETABLE_1_PRIVATE$/ { sub(/@.*/, "", $3); print $3 }' |
        grep -vx '_ZT[IS]7QString' | sort
}

# The names that public headers mark, and what the C++ compiler makes for them.
declared() {
    find "$root/src" -name '*.h' ! -name '*_p.h' -print0 | xargs -0 cat | tr '\n' ' ' | sed 's/std:://g' |
        grep -oE 'LIVETABLE_EXPORT [^;{(:=]*' | sed -E 's/ +$//; s/.*[ *&]//' | sort -u
}

names=$(declared)
stray=$(exported | c++filt | sed -E \
    's/^(vtable|typeinfo|typeinfo name|VTT|guard variable) for //
     s/^(non-virtual|virtual) thunk to //; s/^(Database|LiveTable|QJson):://; s/\(.*//; s/::.*//; s/\[.*//' |
    sort -u | grep -vxF -- "$names" | grep -vxE 'operator[^a-zA-Z]+' || true)
if [ -n "$stray" ]; then
    echo "symbols: exported, but marked in no public header:" >&2
    printf '%s\n' "$stray" >&2
    exit 1
fi

if [ -n "$update" ]; then
    exported >"$kept"
    echo "symbols: wrote $(wc -l <"$kept") names"
    exit 0
fi
gone=$(comm -13 <(exported) "$kept" | c++filt)
new=$(comm -23 <(exported) "$kept" | c++filt)
if [ -n "$gone" ]; then
    echo "symbols: these have gone; a program that was linked with the last version misses them:" >&2
    printf '%s\n' "$gone" >&2
    exit 1
fi
if [ -n "$new" ]; then
    echo "symbols: these are new; if they are meant to be, run scripts/check-symbols.sh --update" >&2
    printf '%s\n' "$new" >&2
    exit 1
fi
echo "symbols: $(wc -l <"$kept"), all kept"
