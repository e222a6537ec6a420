#!/usr/bin/env bash
# Installs the build tree below $STAGE: staged_install.sh CMAKE
set -euo pipefail
rm -rf "$STAGE"
DESTDIR=$STAGE "$1" --install "$BUILD_DIR" >install.log
