#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian packages of this tree: the library, -dev and -doc; checks them with lintian, and
# by building and running examples/consumer three ways against what they install.
# usage: scripts/package.sh [--quick] [--check WHERE] [output folder]      (build/packages)
#   --quick          packs the objects of build/release instead of building anew
#   --check prefix   unpacks them into an empty folder and builds there (what is done anyway)
#   --check root     installs them with apt into a fresh Debian, made by debootstrap; needs root and
#                    the mirror that this system installs from
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
quick=
where=prefix
output=$root/build/packages
while [ $# -gt 0 ]; do
    case "$1" in
    --quick) quick=1 ;;
    --check)
        where=$2
        shift
        ;;
    *) output=$1 ;;
    esac
    shift
done
say() { printf 'package: %s\n' "$*"; }

"$root/scripts/deps.sh" build package
if [ "$where" = root ]; then
    "$root/scripts/deps.sh" root
fi
mkdir -p -- "$output"
output=$(cd -- "$output" && pwd -P)
rm -f -- "$output"/*.deb "$output"/*.changes "$output"/*.buildinfo
work=$(mktemp -d "${TMPDIR:-/tmp}/livetable-package.XXXXXX")
trap 'rm -rf -- "$work"' EXIT

# From a copy, so that nothing of the packaging is left in the tree.
source=$work/livetable
mkdir "$source"
(cd -- "$root" && git ls-files -z --cached --others --exclude-standard |
    tar --null --files-from=- --ignore-failed-read -cf - 2>/dev/null) | tar -C "$source" -xf -
cp -R -- "$source/packaging/debian" "$source/debian"
version=$(sed -n 's/^#define LIVETABLE_VERSION_STR "\(.*\)"/\1/p' \
    "$root/src/database/base/version.h")
maintainer=$(sed -n 's/^Maintainer: //p' "$source/debian/control")
printf 'livetable (%s) unstable; urgency=medium\n\n  * See CHANGELOG.md.\n\n -- %s  %s\n' \
    "$version" "$maintainer" "$(git -C "$root" log -1 --format=%cD 2>/dev/null || date -R)" \
    >"$source/debian/changelog"

settings=()
if [ -n "$quick" ]; then
    settings=("LIVETABLE_BUILD=$root/build/release" DEB_BUILD_OPTIONS=noautodbgsym)
    cmake --build "$root/build/release" --target livetable livetable_model >"$work/log" || {
        cat "$work/log" >&2
        exit 1
    }
    # The packaging sets the folder of libraries that Debian has.
    trap 'rm -rf -- "$work"; cmake "$root/build/release" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null' EXIT
fi
(cd -- "$source" && env "${settings[@]}" dpkg-buildpackage --build=binary --no-sign -d) \
    >"$work/log" 2>&1 || {
    tail -n 40 "$work/log" >&2
    exit 1
}
mv -- "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$output"
say "$(cd -- "$output" && echo *.deb)"

# As root lintian would refuse without the option; errors fail, the rest is only said.
lintian --allow-root --fail-on error "$output"/*.changes
say "lintian has no error"

if [ "$where" = prefix ]; then
    # Found as an installation elsewhere would be.
    for package in "$output"/*.deb; do
        dpkg-deb -x "$package" "$work/unpacked"
    done
    "$root/scripts/check-consumer.sh" "$work/unpacked/usr" "packages"
    exit 0
fi

# A Debian with nothing but a shell, from where this one came.
mirror=$(apt-cache policy | grep -oE 'https?://[^ ]+' | grep -v security | head -n 1)
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
clean=$work/root
debootstrap --variant=minbase "$suite" "$clean" "$mirror" >"$work/log" 2>&1 || {
    tail -n 20 "$work/log" >&2
    exit 1
}
cp -- /etc/resolv.conf "$clean/etc/resolv.conf"
cp -R -- /etc/apt/apt.conf.d/. "$clean/etc/apt/apt.conf.d/"
mkdir "$clean/packages" "$clean/tree"
cp -- "$output"/*.deb "$clean/packages"
cp -R -- "$source/examples" "$source/scripts" "$clean/tree"
chroot "$clean" sh -ec '
    export DEBIAN_FRONTEND=noninteractive LC_ALL=C
    apt-get update -qq
    apt-get install -qq -y --no-install-recommends /packages/*.deb g++ cmake ninja-build pkg-config \
        qtbase5-dev-tools qt5-qmake make
    /tree/scripts/check-consumer.sh /usr packages
    dpkg --purge liblivetable-dev liblivetable-doc liblivetable1
    test -z "$(find /usr -name "*livetable*")"
' >"$work/log" 2>&1 || {
    tail -n 40 "$work/log" >&2
    exit 1
}
grep '^consumer:' "$work/log"
say "installed into a fresh Debian $suite, used, and removed without a trace"
