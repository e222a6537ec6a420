#pragma once

#include "zrnserve/camera_list.h"
#include "zrnserve/lossless_stream.h"
#include "zrnserve/rtsp_service.h"

#include <memory>
#include <string>
#include <vector>

namespace zrnserve
{

using LosslessStreams = std::vector<std::unique_ptr<LosslessStream>>;

/// The cameras and their addresses, as JSON.
std::string camerasAsJson(const CameraList& cameras, const RtspService& service,
                          const LosslessStreams& lossless, const std::string& host);

/// In Prometheus's text format.
std::string metrics(const CameraList& cameras, const RtspService& service,
                    const LosslessStreams& lossless);

} // namespace zrnserve
