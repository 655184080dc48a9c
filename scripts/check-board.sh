#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Takes pictures of every screen of the desktop board after 1, 10 and 60 simulated minutes, without
# a window system: dark and light, at 100 % and at 200 %. Fails when a picture is missing, has the
# wrong size or shows one colour only. Looking at them is left to people.
# usage: scripts/check-board.sh [folder of the pictures [further arguments of the board]]
set -euo pipefail
unset CDPATH

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
program=${BOARD:-$root/build/release/apps/board/board}
pictures=${1:-$root/build/release/screenshots}
if [ $# -gt 0 ]; then
    shift
fi
if [ ! -x "$program" ]; then
    echo "board: there is no program $program" >&2
    exit 1
fi
"$root/scripts/deps.sh" board

settings=$(mktemp -d)
trap 'rm -rf -- "$settings"' EXIT
export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$settings}

screens=(window optionboard quotes smile tape keys prompt saving
    menu-session menu-view menu-workplace menu-help)
minutes=(001 010 060)
mkdir -p -- "$pictures"
for palette in dark light; do
    for scale in 1 2; do
        folder=$pictures/$palette-${scale}00
        rm -f -- "$folder"/minute-*.png
        QT_SCALE_FACTOR=$scale "$program" --settings-dir "$settings/$palette-$scale" \
            --palette "$palette" --size 1280x800 --speed 600 \
            --screenshot-dir "$folder" --screenshot-at 1,10,60 "$@"
        for minute in "${minutes[@]}"; do
            for screen in "${screens[@]}"; do
                file=$folder/minute-$minute-$screen.png
                if [ ! -s "$file" ]; then
                    echo "board: there is no picture $file" >&2
                    exit 1
                fi
            done
        done
        "$root/scripts/check_pictures.py" "$((1280 * scale))" "$((800 * scale))" \
            "$folder"/minute-*-window.png
    done
done
echo "board: $(find "$pictures" -name 'minute-*.png' | wc -l) pictures in $pictures"
