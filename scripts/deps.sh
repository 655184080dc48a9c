#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing of the Debian 12 packages that the given sets need, and says so.
# usage: scripts/deps.sh [build] [test] [check] [fuzz] [board] [install] [docs] [package] [root]
#        [bench] [nightly]   (no set named: build)
set -euo pipefail

say() { printf '%s\n' "deps: $*" >&2; }

# What a package is there for: a command where it brings one (any origin will do), else the package.
packages_of() {
    case "$1" in
    build) echo "g++:g++ cmake:cmake ninja-build:ninja qtbase5-dev: zlib1g-dev:" ;;
    test) echo "libboost-dev:" ;; # Boost.Multiprecision is the tests' oracle for big numbers
    check) echo "clang-format:clang-format git:git python3:python3" ;;
    fuzz) echo "clang:clang++ libclang-rt-14-dev:" ;; # libFuzzer
    install) echo "pkg-config:pkg-config qt5-qmake:qmake make:make" ;;  # the ways to use the library
    docs) echo "doxygen:doxygen qhelpgenerator-qt5: python3:python3" ;;
    package)
        echo "dpkg-dev:dpkg-buildpackage debhelper:dh lintian:lintian doxygen:doxygen" \
            "qhelpgenerator-qt5: python3:python3 git:git pkg-config:pkg-config qt5-qmake:qmake make:make"
        ;;
    root) echo "debootstrap:" ;;
    board) # beside Widgets, which qtbase5-dev brings: narrow figures of one width
        echo "qtbase5-dev: fonts-roboto-unhinted: fonts-dejavu-core:"
        ;;
    nightly) echo "valgrind:valgrind gcovr:gcovr clang-tidy:run-clang-tidy" ;;
    bench) # the peers
        echo "libsqlite3-dev: libboost-dev: libabsl-dev: libintelrdfpmath-dev: libquantlib0-dev:" \
            "libisal-dev: libtbb-dev: python3:python3"
        ;;
    *)
        say "no set of packages is called '$1' (there are: build, test, check, fuzz, board," \
            "install, docs, package, root, bench, nightly)"
        return 1
        ;;
    esac
}

is_there() { # package command
    if [ -n "$2" ] && command -v "$2" >/dev/null 2>&1; then
        return 0
    fi
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

if [ $# -eq 0 ]; then
    set -- build
fi

wanted=""
for name in "$@"; do
    wanted+=" $(packages_of "$name")"
done

missing=()
for entry in $wanted; do
    package=${entry%:*}
    if ! is_there "$package" "${entry##*:}"; then
        missing+=("$package")
    fi
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

if ! command -v apt-get >/dev/null 2>&1; then
    say "this is no Debian system; please install what these Debian packages hold: ${missing[*]}"
    exit 1
fi
as_root=(env DEBIAN_FRONTEND=noninteractive)
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null 2>&1; then
        say "these packages are missing, and only root can install them: ${missing[*]}"
        exit 1
    fi
    as_root=(sudo "${as_root[@]}")
fi

say "installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq >&2 || {
    say "the list of packages could not be refreshed; trying with the one at hand"
}
"${as_root[@]}" apt-get install -qq -y --no-install-recommends "${missing[@]}" >&2 || {
    say "could not install ${missing[*]}"
    exit 1
}
say "installed ${missing[*]}"
