#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Writes the reference and the pages as HTML and as a Qt help file (.qch); a warning of doxygen is an
# error: something that is public has no word of explanation, or a link leads nowhere.
# usage: scripts/docs.sh [output folder]      (build/docs)
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
output=${1:-$root/build/docs}
command -v doxygen >/dev/null 2>&1 || "$root/scripts/deps.sh" docs
mkdir -p -- "$output"
output=$(cd -- "$output" && pwd -P)
rm -rf -- "$output/html" "$output/livetable.qch"

version=$(sed -n 's/^#define LIVETABLE_VERSION_STR "\(.*\)"/\1/p' "$root/src/database/base/version.h")
helper=$(command -v qhelpgenerator || echo /usr/lib/qt5/bin/qhelpgenerator)

cd -- "$root"
if ! {
    cat docs/doxygen/Doxyfile
    printf 'PROJECT_NUMBER = %s\nOUTPUT_DIRECTORY = "%s"\nQCH_FILE = "%s"\nQHG_LOCATION = "%s"\n' \
        "$version" "$output" "$output/livetable.qch" "$helper"
} | doxygen - >"$output/log" 2>"$output/warnings" || grep -v '^QStandardPaths' "$output/warnings" | grep -q .; then
    sed "s|$root/||" "$output/warnings" >&2
    echo "docs: doxygen has something to say" >&2
    exit 1
fi
if [ ! -s "$output/livetable.qch" ]; then
    tail -n 20 "$output/log" >&2
    echo "docs: there is no livetable.qch" >&2
    exit 1
fi
echo "docs: $(find "$output/html" -name '*.html' | wc -l) pages, no warnings"
