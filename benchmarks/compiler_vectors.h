#pragma once

#include "frame_unpacking.h"

/// Unpacks with the compiler's vectors, in a clone of the function for each instruction set: what
/// the driver's kernels were weighed against. Widths are multiples of 32.
/// @return false for layouts that were not written this way
bool unpackWithCompilerVectors(FrameLayout layout, const unsigned char* frame, int width,
                               int height, unsigned char* imageA, unsigned char* imageB);
