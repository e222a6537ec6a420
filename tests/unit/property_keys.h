#pragma once

/// The key texts that hosts send.
namespace keys
{

inline constexpr auto auxParameter = "CapturePeriod";
inline constexpr auto resolutionList = "ResolutionList";
inline constexpr auto colourByte3 = "BGain";
inline constexpr auto gainReadBack = "EnableCheckGain";
inline constexpr auto frameRate = "FrameRate";
inline constexpr auto exposureReadBack = "EnableCheckExposureTime";
inline constexpr auto serialNumber = "Serial";
inline constexpr auto cacheFrameCount = "CacheFrameCount";
inline constexpr auto resolutionIndex = "ResolutionIndex";
inline constexpr auto grabTimeout = "MaxGrabWaitTime";
inline constexpr auto sharpness = "Sharp";
inline constexpr auto deviceStatus = "HeartBeat";
inline constexpr auto sensorClass = "SensorCount";
inline constexpr auto colourByte2 = "GBGain";
inline constexpr auto colourByte0 = "RGain";
inline constexpr auto colourByte1 = "GRGain";
inline constexpr auto gamma = "Gamma";
inline constexpr auto hue = "Hue";

inline constexpr const char* all[] = {
    auxParameter, resolutionList,  colourByte3,     gainReadBack, frameRate, exposureReadBack,
    serialNumber, cacheFrameCount, resolutionIndex, grabTimeout,  sharpness, deviceStatus,
    sensorClass,  colourByte2,     colourByte0,     colourByte1,  gamma,     hue,
};
inline constexpr const char* readOnly[] = {resolutionList, frameRate, serialNumber, deviceStatus,
                                           sensorClass};

} // namespace keys
