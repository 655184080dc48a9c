#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs the test of a full disk on a small file system of its own; needs the right to mount one (or
# unprivileged user namespaces).
#
#     full-disk.sh TEST     the program tst_saving in the build's tests/io
set -eu
program=$(realpath "$1")
place=$(mktemp -d)
run="mount -t tmpfs -o size=256k livetable '$place' &&
     LIVETABLE_FULL_DISK='$place' '$program' fullDisk; code=\$?; umount '$place'; exit \$code"
if [ "$(id -u)" = 0 ] && ! unshare --mount true 2>/dev/null; then
    echo "full-disk.sh: not run, mounting is not allowed here"
elif [ "$(id -u)" = 0 ]; then
    unshare --mount sh -c "$run"
else
    unshare --user --map-root-user --mount sh -c "$run"
fi
rmdir "$place"
