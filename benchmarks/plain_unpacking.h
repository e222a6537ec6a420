#pragma once

#include "frame_unpacking.h"

/// What the tables of scripts/bench call a layout.
const char* layoutName(FrameLayout layout);

/// Unpacks as unpackFrame does, with the loop that one would write down first, at widths that are a
/// multiple of four and, for the strips, 1280.
void unpackPlainly(FrameLayout layout, const unsigned char* frame, int width, int height,
                   unsigned char* imageA, unsigned char* imageB);
