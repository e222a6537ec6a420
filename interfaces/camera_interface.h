#pragma once

#include "camera_types.h"
#include "device_interface.h"

#include <QList>

namespace CameraSpace
{

/// What every camera of the framework answers, beside BaseDeviceSpace::DeviceInterface. The
/// trailing selector of the operations is the host's; a driver may ignore it.
///
/// Errors: an operation that reaches the camera answers NoCamera where none is connected; the
/// others stand with each. Outputs keep their values on failure where nothing else is said.
///
/// Thread safety: any thread may call any operation.
class CameraInterface : public virtual BaseDeviceSpace::DeviceInterface
{
public:
    /// Limits of the exposure time in microseconds. UVC: GET_MIN and GET_MAX of Brightness.
    /// @return ExposureRangeFailed where one could not be read; the outputs are then undefined.
    virtual ErrorCode getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                           signed char selector) = 0;
    /// Sets the exposure time in microseconds. UVC: SET_CUR of Brightness. @return BadArgument
    /// outside the limits, ExposureWriteFailed, or ExposureReadFailed where it reads back
    /// differently or not at all.
    virtual ErrorCode setExposureTime(unsigned int value, signed char selector) = 0;
    /// Reads the exposure time in microseconds. UVC: GET_CUR of Brightness.
    /// @return ExposureReadFailed.
    virtual ErrorCode getExposureTime(unsigned int& value, signed char selector) = 0;

    /// Limits of the gain, 0 to 65535. UVC: GET_MIN and GET_MAX of Gain. A limit that cannot be
    /// read is the last known one, and no failure.
    virtual ErrorCode getGainRange(unsigned short& minimum, unsigned short& maximum,
                                   signed char selector) = 0;
    /// Sets the gain. UVC: SET_CUR of Gain. @return BadArgument outside the limits,
    /// GainWriteFailed, also where it reads back differently, or GainReadFailed.
    virtual ErrorCode setGain(unsigned short value, signed char selector) = 0;
    /// Reads the gain. UVC: GET_CUR of Gain. @return GainReadFailed.
    virtual ErrorCode getGain(unsigned short& value, signed char selector) = 0;

    /// Size of the images in pixels.
    virtual ErrorCode getMaxImageSize(unsigned int& width, unsigned int& height,
                                      signed char selector) = 0;
    /// Area of interest: size in pixels. Cameras without one answer NotSupported where it is set,
    /// and the size of the images where it is read.
    virtual ErrorCode setInterestSize(unsigned int width, unsigned int height,
                                      signed char selector) = 0;
    virtual ErrorCode getInterestSize(unsigned int& width, unsigned int& height,
                                      signed char selector) = 0;
    /// Area of interest: offset in pixels from the left and the top. Cameras without one answer
    /// NotSupported.
    virtual ErrorCode setAOIOffset(unsigned int x, unsigned int y, signed char selector) = 0;
    virtual ErrorCode getAOIOffset(unsigned int& x, unsigned int& y, signed char selector) = 0;

    /// Pixel format of the frames that the camera sends.
    virtual ErrorCode getPixelFormat(PixelFormatType& format, signed char selector) = 0;

    /// Which cached frame a grab takes. Stored and reported even where the result is NotSupported.
    virtual ErrorCode setTriggerMode(TriggerMode mode, signed char selector) = 0;
    virtual ErrorCode getTriggerMode(TriggerMode& mode, signed char selector) = 0;

    /// Waits for at most 16 frames, each at most the grab timeout, then drops every cached frame.
    /// Always succeeds.
    virtual ErrorCode discardFrames(signed char selector) = 0;
    /// Starts the video stream. @return StreamStartFailed; Success where it runs already.
    virtual ErrorCode startStream(signed char selector) = 0;
    /// Stops the video stream and wakes waiting grabs. @return NotStreaming.
    virtual ErrorCode stopStream(signed char selector) = 0;

    /// Takes one cached frame, waiting for it if there is none, and appends its images to @p
    /// images. The caller owns the blocks. @return NotStreaming, GrabTimeout, SplitFailed or
    /// SplitException; nothing is appended then.
    virtual ErrorCode grabImage(QList<ImageBlock*>& images) = 0;

protected:
    ~CameraInterface() = default;
};

} // namespace CameraSpace
