#pragma once

#include "client/stream.h"

#include <QJsonObject>
#include <QString>

/// What is told of a stream that is kept alive, when it happens.
QString textOf(const zrn::StreamEvent& event);

/// An outage, as an entry of the document.
QJsonObject jsonOf(const zrn::Outage& outage);
