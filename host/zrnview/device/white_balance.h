#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/model/bayer.h"

namespace zrnview
{

/// The camera's colour gains that make what is seen in @p region grey, both images together.
/// @param region inside of the images; an empty one is all of them @return nothing, and why
struct WhiteBalance {
    std::optional<BayerChannels<int>> gains;
    QString problem; ///< empty where there are gains
};
WhiteBalance whiteBalanceFor(const CameraDevice& device, const Display& display,
                             BayerPattern pattern, const QRect& region);

/// Asks the camera for the gains.
void setColourGains(CameraDevice& device, const BayerChannels<int>& gains);

} // namespace zrnview
