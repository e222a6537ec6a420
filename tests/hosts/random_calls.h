#pragma once

#include "camera_interface.h"

#include <random>
#include <span>

namespace hosts
{

using Random = std::mt19937;

/// One operation of the host contract, with arguments drawn at random: good ones, and ones that a
/// careless host would give.
struct RandomCall {
    const char* name;
    ErrorCode (*make)(CameraSpace::CameraInterface& camera, Random& random);
};

/// Every operation of a camera and of the device that it is. Grabbed images are deleted.
std::span<const RandomCall> randomCalls();

/// Makes one of them. @return what it answered.
ErrorCode callAtRandom(CameraSpace::CameraInterface& camera, Random& random);

/// Whether a result is one that the interfaces name.
bool isDocumented(ErrorCode result);

} // namespace hosts
