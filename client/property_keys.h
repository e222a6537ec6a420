#pragma once

/// Texts of the property and command keys. The driver knows their hashes only, so that a key that
/// is misspelt here is answered like any unknown key.
namespace zrn::keys
{

inline constexpr const char* capturePeriod = "CapturePeriod";
inline constexpr const char* resolutionList = "ResolutionList";
inline constexpr const char* bGain = "BGain";
inline constexpr const char* enableCheckGain = "EnableCheckGain";
inline constexpr const char* frameRate = "FrameRate";
inline constexpr const char* enableCheckExposureTime = "EnableCheckExposureTime";
inline constexpr const char* serial = "Serial";
inline constexpr const char* cacheFrameCount = "CacheFrameCount";
inline constexpr const char* resolutionIndex = "ResolutionIndex";
inline constexpr const char* maxGrabWaitTime = "MaxGrabWaitTime";
inline constexpr const char* sharp = "Sharp";
inline constexpr const char* heartBeat = "HeartBeat";
inline constexpr const char* sensorCount = "SensorCount";
inline constexpr const char* gbGain = "GBGain";
inline constexpr const char* rGain = "RGain";
inline constexpr const char* grGain = "GRGain";
inline constexpr const char* gamma = "Gamma";
inline constexpr const char* hue = "Hue";

/// Commands.
inline constexpr const char* clearState = "ClearState";

/// Entry of the property map that carries the value, in both directions.
inline constexpr const char* value = "value";

/// Entries of the record that HeartBeat answers.
inline constexpr const char* online = "ONLINE";
inline constexpr const char* statusFrameRate = "FEAMERATE";

} // namespace zrn::keys
