#pragma once

#include "checks/account.h"
#include "common/camera.h"

// What this driver promises beyond the host contract. Each group leaves the camera as it found it:
// connected, stopped, and with the settings that it had.

/// Form of the serial.
void checkSerial(zrnhost::Camera& camera, ContractSpace::Account& account);
/// Every property: type, reading, writing with read-back, and what it refuses.
void checkProperties(zrnhost::Camera& camera, ContractSpace::Account& account);
/// Frame numbers, rate and status of a running stream.
void checkFrames(zrnhost::Camera& camera, ContractSpace::Account& account);
/// The reset, which leaves the camera with settings of its own.
void checkReset(zrnhost::Camera& camera, ContractSpace::Account& account);
