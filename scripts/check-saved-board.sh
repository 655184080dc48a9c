#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Plays the board's session, saves its tables, loads them into a fresh process, plain and compressed
# by hand, and compares what the two processes show (all but the last line, which tells the speed).
# usage: check-saved-board.sh MARKETBOARD [arguments of the session]
set -euo pipefail

board=$1
shift
place=$(mktemp -d)
trap 'rm -rf -- "$place"' EXIT
own=(--settings-dir "$place/settings") # what is kept of the arguments is no business of the next run
"$board" "${own[@]}" --top 1000 --save "$place/saved" "$@" | head -n -1 >"$place/played"
[ "$(wc -l <"$place/played")" -gt 3 ] || { echo "check-saved-board: nothing was shown"; exit 1; }
for form in plain gzip; do
    if [ $form = gzip ]; then
        gzip "$place"/saved/*
    fi
    "$board" "${own[@]}" --top 1000 --load "$place/saved" | head -n -1 >"$place/loaded"
    diff -u "$place/played" "$place/loaded"
done
echo "check-saved-board: $(wc -l <"$place/played") lines, the same from plain and from gzip files"
