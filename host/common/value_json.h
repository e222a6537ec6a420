#pragma once

#include "client/value.h"

#include <QJsonValue>

namespace zrnhost
{

/// A property's value as JSON. Thread safety: reentrant.
QJsonValue toJson(const zrn::Value& value);

} // namespace zrnhost
