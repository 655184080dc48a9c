#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Every program in docs/ and README.md compiles against the library and prints what the page says;
# the links between the pages lead somewhere; the reference can be made without a warning.
# usage: scripts/check-docs.sh [--programs] [build folder]      (build/release)
#   --programs   leaves the reference out
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
reference=1
if [ "${1-}" = --programs ]; then
    reference=
    shift
fi
build=$(cd -- "${1:-$root/build/release}" && pwd -P)
# Always the same folder, so that a compiler cache knows its files again.
work=$root/build/docs-check
rm -rf -- "$work"
mkdir -p -- "$work"

"$root/scripts/readme_speed.py" --check
mkdir "$work/programs"
python3 "$root/scripts/docs_code.py" "$work/programs" "$root"/docs/*.md "$root/README.md"

launcher=()
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cat >"$work/CMakeLists.txt" <<'EOT'
cmake_minimum_required(VERSION 3.22)
project(pages LANGUAGES CXX)
find_package(LiveTable 1 REQUIRED)
file(GLOB programs "${CMAKE_SOURCE_DIR}/programs/*.cpp")
foreach(program IN LISTS programs)
  get_filename_component(name "${program}" NAME_WE)
  add_executable(${name} "${program}")
  target_compile_options(${name} PRIVATE -Wall -Wextra -Werror)
  target_link_libraries(${name} PRIVATE LiveTable::LiveTable)
endforeach()
EOT
cmake -G Ninja -S "$work" -B "$work/build" "${launcher[@]}" -DLiveTable_DIR="$build" >"$work/log" &&
    cmake --build "$work/build" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    echo "docs: a program of a page does not compile" >&2
    exit 1
}
status=0
for program in "$work"/programs/*.cpp; do
    name=$(basename "$program" .cpp)
    mkdir "$work/folder"
    if ! (cd -- "$work/folder" && timeout 60 "$work/build/$name") >"$work/output" 2>&1; then
        cat "$work/output" >&2
        echo "docs: the program $name fails" >&2
        status=1
    elif [ -f "$work/programs/$name.txt" ] &&
        ! diff -u --label "$name, the page" --label "$name, the program" \
            "$work/programs/$name.txt" "$work/output" >&2; then
        status=1
    fi
    rm -rf -- "$work/folder"
done

# Links to other files of the tree.
while IFS=: read -r page link; do
    if [ ! -e "$(dirname "$root/$page")/${link%%#*}" ]; then
        echo "docs: $page links to $link, which is not there" >&2
        status=1
    fi
done < <(cd -- "$root" && grep -oHE '\]\([^)#: ]+[^): ]*\)' README.md CHANGELOG.md CONTRIBUTING.md docs/*.md |
    sed -E 's/\]\((.*)\)/\1/')

if [ "$status" -ne 0 ]; then
    exit 1
fi
echo "docs: every program of the pages does what they say"
if [ -n "$reference" ]; then
    "$root/scripts/docs.sh" "$build/docs"
fi
