#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Whether programs that were linked with an earlier library of this major version run with this one:
#   cmake/abi/symbols.txt   what it exports: nothing may go, and each symbol belongs to something
#                           that a public header marks with LIVETABLE_EXPORT
#   cmake/abi/layout.txt    size and alignment of every public class, and the order of its virtual
#                           functions, as g++ lays them out: nothing may change
# usage: scripts/check-abi.sh PREFIX           of an installation; fails when something has gone or
#                                              changed, and when something new is not listed
#        scripts/check-abi.sh --update PREFIX  writes both lists
# After a release an update may only add lines, unless the major version changes.
set -euo pipefail
unset CDPATH
export LC_ALL=C

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
update=
if [ "${1-}" = --update ]; then
    update=1
    shift
fi
prefix=$1
kept=$root/cmake/abi
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT

# The version node of the library's own tests is no part of the interface, and the type information
# of Qt's classes is where the compiler has put it.
find "$prefix" -name 'liblivetable*.so' | sort | while IFS= read -r library; do
    nm -D --defined-only --with-symbol-versions "$library" |
        awk '$2 != "A" && $3 !~ /_PRIVATE$/ { sub(/@.*/, "", $3); print $3 }'
done | grep -vx '_ZT[IS]7QString' | sort -u >"$work/symbols.txt"

# Every name that public headers mark, and what the compiler makes for it.
find "$prefix/include" -name '*.h' -print0 | xargs -0 cat | tr '\n' ' ' | sed 's/std:://g' |
    grep -oE 'LIVETABLE_[A-Z_]*EXPORT [^;{(:=]*' | sed -E 's/ +$//; s/.*[ *&]//' |
    sort -u >"$work/names"
stray=$(c++filt <"$work/symbols.txt" | sed -E \
    's/^(vtable|typeinfo|typeinfo name|VTT|guard variable) for //
     s/^(non-virtual|virtual) thunk to //; s/^(Database|LiveTable|QJson):://
     s/\(.*//; s/::.*//; s/\[.*//' |
    sort -u | grep -vxF -f "$work/names" | grep -vxE 'operator[^a-zA-Z]+' || true)
if [ -n "$stray" ]; then
    echo "abi: exported, but marked in no public header:" >&2
    printf '%s\n' "$stray" >&2
    exit 1
fi

# One line a class: "Table size=48 align=8", "Index: clear build rebuild ...".
read -r -a qt <<<"$(pkg-config --cflags Qt5Core)"
find "$prefix/include/livetable" -maxdepth 1 -name 'LiveTable*' -printf '#include <livetable/%f>\n' |
    g++ -std=c++17 -fPIC -fsyntax-only "-fdump-lang-class=$work/classes" "-I$prefix/include" \
        "${qt[@]}" -x c++ -
sed 's/#.*//; s/ .*//' "$root"/cmake/headers/*.txt | grep . | sort -u >"$work/classnames"
awk '
NR == FNR { public[$1] = 1; next }
/^Class / { name = substr($0, 7); next }
/^   size=/ && name in public { print name " " $1 " " $2; name = ""; next }
/^Vtable for / { name = substr($0, 12); table = name in public; line = name ":"; next }
table && /^[0-9]+ / {
    slot = $0
    sub(/^[0-9]+ +/, "", slot)
    sub(/^\(int \(\*\)\(\.\.\.\)\)/, "", slot)
    if (slot ~ /^-?[0-9]+$|_ZTI/)
        next
    # Which class overrides it may change.
    if (slot == "__cxa_pure_virtual") slot = "?"
    sub(/.*::/, "", slot)
    line = line " " slot
    next
}
table && /^$/ { print line; table = 0 }
' "$work/classnames" "$work/classes" | sort >"$work/layout.txt"
if [ "$(wc -l <"$work/layout.txt")" -lt 50 ]; then
    echo "abi: g++ did not tell how the classes are laid out" >&2
    exit 1
fi

if [ -n "$update" ]; then
    mkdir -p "$kept"
    cp -- "$work/symbols.txt" "$work/layout.txt" "$kept"
    echo "abi: wrote $(wc -l <"$kept/symbols.txt") symbols and the layout of" \
        "$(grep -c size= "$kept/layout.txt") classes"
    exit 0
fi
status=0
for list in symbols layout; do
    gone=$(comm -13 "$work/$list.txt" "$kept/$list.txt" | c++filt)
    new=$(comm -23 "$work/$list.txt" "$kept/$list.txt" | c++filt)
    if [ -n "$gone" ]; then
        echo "abi: gone or changed; programs linked with the last version do not run with this:" >&2
        printf '%s\n' "$gone" >&2
        status=1
    fi
    if [ -n "$new" ]; then
        echo "abi: new; if it is meant to be, run scripts/check-abi.sh --update" >&2
        printf '%s\n' "$new" >&2
        status=1
    fi
done
if [ "$status" -eq 0 ]; then
    echo "abi: $(wc -l <"$kept/symbols.txt") symbols, $(grep -c size= "$kept/layout.txt") classes as before"
fi
exit $status
