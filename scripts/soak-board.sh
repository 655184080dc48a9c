#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Plays a session over and over on the desktop board for some minutes, without a window system.
# Fails when the memory grew by more than 5 % (at least 4 MB) after the first pass, or a frame took
# longer than 50 ms. On a machine that is busy with other things, LATE_FRAMES=n allows n such frames;
# frames that took more than 50 ms of processor time are never allowed.
# usage: scripts/soak-board.sh MINUTES [further arguments of the board, for instance --data DIR]
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
program=${BOARD:-$root/build/release/apps/board/board}
minutes=${1:?how many minutes?}
shift
if [ ! -x "$program" ]; then
    echo "soak: there is no program $program" >&2
    exit 1
fi
"$root/scripts/deps.sh" board

settings=$(mktemp -d)
trap 'rm -rf -- "$settings"' EXIT
export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$settings}

"$program" --settings-dir "$settings" --size 1280x800 --speed max --replay-loop "$minutes" "$@" |
    tee "$settings/out"
awk -v late="${LATE_FRAMES:-0}" '
/^passes / {
    found = 1
    gsub(/,/, "")
    for (i = 1; i < NF; i++) {
        if ($i == "passes") passes = $(i + 1)
        if ($i == "first") first = $(i + 1)
        if ($i == "most") most = $(i + 1)
        if ($i == "late" && $(i + 1) == "by") works = $(i + 3)
        else if ($i == "late") lates = $(i + 1)
    }
}
END {
    if (!found) { print "soak: the board did not tell how it went"; exit 1 }
    if (passes < 2) { print "soak: too short, there was no second pass"; exit 1 }
    room = first * 0.05 > 4 ? first * 0.05 : 4
    if (most > first + room) { print "soak: memory has grown"; status = 1 }
    if (lates > late) { print "soak: " lates " late frames"; status = 1 }
    if (works > 0) { print "soak: " works " frames of more than 50 ms of work"; status = 1 }
    exit status
}' "$settings/out"
echo "soak: memory and frames are as they should be"
