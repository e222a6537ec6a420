#pragma once

#include "client/bus.h"
#include "zrnview/device/camera_reports.h"

#include <QStringList>

#include <optional>

namespace zrnview
{

/// What may keep a stream from delivering, as far as it can be told from here: one entry each, with
/// the remedy, the most telling first. Never empty.
///
/// @param port of the camera: of others nothing is said, but that transfers of all share a memory
/// @param usbfsMegabytes as zrn::transferMemoryLimit() gives it
QStringList silenceFindings(const CameraHealth& health, const QString& port,
                            const std::vector<zrn::BusCamera>& onBus,
                            std::optional<int> usbfsMegabytes);

} // namespace zrnview
