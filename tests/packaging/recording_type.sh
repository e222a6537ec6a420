#!/usr/bin/env bash
# A recording is known by its name and by its content, has an icon, and opens in the viewer: recording_type.sh PREFIX
set -euo pipefail
type=application/x-zrnrec
if [ ! -x "$1/bin/zrnview" ]; then
    # Nobody may name a type that nothing opens.
    [ ! -e "$1/share/mime/packages/zrnrec.xml" ]
    exit 0
fi
[ -f "$1/share/icons/hicolor/scalable/mimetypes/${type/\//-}.svg" ]

data=$(mktemp -d)
trap 'rm -rf "$data"' EXIT
mkdir "$data/home" "$data/bin"
cp -r "$1/share/mime" "$1/share/applications" "$data"
export XDG_DATA_DIRS=$data XDG_DATA_HOME=$data/home XDG_CONFIG_HOME=$data/home PATH=$data/bin:$PATH
update-mime-database "$data/mime"
update-desktop-database "$data/applications"

# In place of the viewer, which tells what it is given.
printf '#!/bin/sh\nprintf "%%s\\n" "$@" >"%s/part" && mv "%s/part" "%s/opened"\n' "$data" "$data" "$data" >"$data/bin/zrnview"
chmod +x "$data/bin/zrnview"

is_recording() {
    gio info --attributes standard::content-type "$1" | grep -F "standard::content-type: $type"
}
echo damaged >"$data/by name.zrnrec"
printf '\211ZRNREC\n and more' >"$data/by content"
is_recording "$data/by name.zrnrec"
is_recording "$data/by content"

gio open "$data/by name.zrnrec"
until [ -f "$data/opened" ]; do # CTest sets the limit
    sleep 0.1
done
[ "$(cat "$data/opened")" = "$data/by name.zrnrec" ]
