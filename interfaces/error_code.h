#pragma once

#include <cstdint>

/// Result of every operation of the host contract. Nothing is thrown across it.
///
/// The numbers are binding between host and plugin, the enumerators are not.
enum class ErrorCode : std::uint32_t {
    Success = 0, ///< success

    NoCamera = 512,       ///< no camera is connected
    SplitException = 513, ///< an exception came out of unpacking a frame

    SerialNotFound = 769,    ///< no enumerated camera has this serial
    IndexNotFound = 770,     ///< no enumerated camera at this index
    NodeNotOpen = 771,       ///< the camera was enumerated, but is not open any more
    AlreadyConnected = 772,  ///< this camera object is connected already
    NotSupported = 775,      ///< not supported, or the key is unknown or read-only
    NothingEnumerated = 776, ///< no camera was enumerated
    NotConnected = 777,      ///< the camera object is not connected
    PropertyFailed = 779,    ///< known key, but the access failed or the value has a wrong type
    BadArgument = 780,       ///< an argument is empty, missing or out of range
    CommandFailed = 781,     ///< the camera did not carry out the command

    NotStreaming = 1033,        ///< the stream is not running
    GrabTimeout = 1034,         ///< no frame arrived within the wait
    SplitFailed = 1035,         ///< a frame could not be unpacked
    ExposureWriteFailed = 1037, ///< the exposure time could not be written
    ExposureReadFailed = 1038,  ///< the exposure time could not be read, or reads back differently
    ExposureRangeFailed = 1039, ///< the exposure range could not be read
    GainWriteFailed = 1040,     ///< the gain could not be written, or reads back differently
    GainReadFailed = 1041,      ///< the gain could not be read
    NoFrameDescriptor = 1047,   ///< the camera reports no format or no frame size
    StreamStartFailed = 1052,   ///< the stream could not be started
};
