#pragma once

#include "checks/account.h"
#include "client/camera_object.h"

// What this driver promises beyond the host contract. Each group leaves the camera as it found it:
// connected, stopped, and with the settings that it had.

/// Form of the serial.
void checkSerial(zrn::CameraObject& camera, ContractSpace::Account& account);
/// Every property: type, reading, writing with read-back, and what it refuses.
void checkProperties(zrn::CameraObject& camera, ContractSpace::Account& account);
/// Frame numbers, rate and status of a running stream.
void checkFrames(zrn::CameraObject& camera, ContractSpace::Account& account);
/// The reset, which leaves the camera with settings of its own.
void checkReset(zrn::CameraObject& camera, ContractSpace::Account& account);
