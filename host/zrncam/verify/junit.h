#pragma once

#include "verify/compliance.h"

/// The rows as a JUnit report, which continuous-integration systems read. What the camera does not
/// support is a skipped test.
QByteArray junitReport(const Compliance& compliance, const QString& serial);
