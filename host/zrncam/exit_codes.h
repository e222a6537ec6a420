#pragma once

/// Exit codes of zrncam. Scripts rely on them: a number never changes its meaning.
enum class ExitCode : int {
    Success = 0,
    Failure = 1,       ///< something unforeseen
    Usage = 2,         ///< wrong command line
    Plugin = 3,        ///< the driver plugin was not found or cannot be used
    NoCamera = 4,      ///< no camera, or not the one that was asked for
    Refused = 5,       ///< the driver or the camera refused an operation
    Stream = 6,        ///< the stream did not start or delivered no frames
    Output = 7,        ///< a result could not be written
    ChecksFailed = 8,  ///< a check found something wrong
    VirtualCamera = 9, ///< the virtual camera could not be started
    Interrupted = 130, ///< stopped by Ctrl-C; what was done until then is reported
};
