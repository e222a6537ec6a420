#pragma once

#include "error_code.h"

#include <QString>

namespace zrnview
{

/// What to do about an answer of the driver, as a sentence; empty for an unknown code.
QString remedyFor(ErrorCode code);

/// "<what>: <code and its meaning>. <remedy>"
QString explained(const QString& what, ErrorCode code);

} // namespace zrnview
