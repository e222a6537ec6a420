#pragma once

#include <QtGlobal>

/// Result of every operation of the host contract. Nothing is thrown across it.
///
/// The numbers are binding between host and plugin, the enumerators are not.
enum class ErrorCode : quint32 {
    Success = 0,

    NoCamera = 512, ///< no camera connected, or a null pointer given to IFactory::deleteDevice
    SplitException = 513, ///< an exception came out of unpacking a frame

    SerialNotFound = 769,    ///< serial not among the enumerated cameras
    IndexNotFound = 770,     ///< no enumerated camera at that index
    NodeNotOpen = 771,       ///< the camera is missing or not open; enumerate again
    AlreadyConnected = 772,  ///< this camera object already has a camera
    NotSupported = 775,      ///< operation not supported, or an unknown property or command key
    NothingEnumerated = 776, ///< connecting: nothing enumerated; deleting: not of this factory
    NotConnected = 777,      ///< reconnecting or disconnecting without a connection
    PropertyFailed = 779,    ///< known key, but the access failed or the value has the wrong type
    BadArgument = 780,       ///< empty serial, value or index out of range, entry "value" missing
    CommandFailed = 781,     ///< the command is known, but the camera refused it

    NotStreaming = 1033,        ///< the stream is not running
    GrabTimeout = 1034,         ///< no frame arrived within the wait
    SplitFailed = 1035,         ///< a frame could not be unpacked
    ExposureWriteFailed = 1037, ///< exposure could not be written
    ExposureReadFailed = 1038,  ///< exposure could not be read, or differs from what was written
    ExposureRangeFailed = 1039, ///< exposure range could not be read
    GainWriteFailed = 1040,     ///< gain could not be written, or differs from what was written
    GainReadFailed = 1041,      ///< gain could not be read
    NoFrameDescriptor = 1047,   ///< the camera reports no format or no frame size
    StreamStartFailed = 1052,   ///< the stream could not be started
};
