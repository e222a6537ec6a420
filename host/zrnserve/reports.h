#pragma once

#include "zrnserve/camera_list.h"
#include "zrnserve/rtsp_service.h"

#include <string>

namespace zrnserve
{

/// The cameras and their addresses, as JSON.
std::string camerasAsJson(const CameraList& cameras, const RtspService& service,
                          const std::string& host);

/// In Prometheus's text format.
std::string metrics(const CameraList& cameras, const RtspService& service);

} // namespace zrnserve
