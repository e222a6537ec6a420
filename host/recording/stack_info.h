#pragma once

#include "client/recording.h"

#include <QJsonArray>

/// How to open the images of a recording in programs that do not know it: an object for each letter
/// with the places of its images, what to fill in in Fiji, and a line for numpy. Empty when they
/// lie at distances that differ.
QJsonArray stackInfo(const zrn::Recording& recording, const QString& path);
