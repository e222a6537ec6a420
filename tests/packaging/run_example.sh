#!/usr/bin/env bash
# Runs a built example host on a virtual camera: run_example.sh HOST PLUGIN_DIR
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$BUILD_DIR/bin/zrnsim" --camera type2 -- "$1" "$2/libzrncamera.so" "$folder"
[ "$(ls "$folder"/image-*.pgm | wc -l)" -eq 6 ]
