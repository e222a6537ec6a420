#!/usr/bin/env bash
# The viewer's desktop entry is valid and its icon is there: desktop_entry.sh PREFIX
set -euo pipefail
entry=$1/share/applications/zrnview.desktop
if [ ! -x "$1/bin/zrnview" ]; then
    # Nobody may offer a program that is not installed.
    [ ! -e "$entry" ]
    exit 0
fi
desktop-file-validate "$entry"
icon=$(sed -n 's/^Icon=//p' "$entry")
[ -f "$1/share/icons/hicolor/scalable/apps/$icon.svg" ]
