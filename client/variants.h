#pragma once

#include "client/value.h"

#include <QVariant>

namespace zrn
{

/// A property's value as the contract carries it, and JSON. Thread safety: reentrant, as all of
/// this header.
QVariant toVariant(const Value& value);

/// The other way; std::monostate for a type that no property has.
Value fromVariant(const QVariant& variant);

} // namespace zrn
