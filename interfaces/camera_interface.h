#pragma once

#include "camera_types.h"
#include "device_interface.h"

#include <QList>

namespace CameraSpace
{

/// What every camera of the framework answers, beside BaseDeviceSpace::DeviceInterface. The
/// trailing selector of the operations is the host's; a driver may ignore it.
///
/// Thread safety: any thread may call any operation.
class CameraInterface : public virtual BaseDeviceSpace::DeviceInterface
{
public:
    /// Limits of the exposure time in microseconds. UVC: GET_MIN and GET_MAX of Brightness.
    virtual ErrorCode getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                           signed char selector) = 0;
    /// Sets the exposure time in microseconds. UVC: SET_CUR of Brightness.
    virtual ErrorCode setExposureTime(unsigned int value, signed char selector) = 0;
    /// Reads the exposure time in microseconds. UVC: GET_CUR of Brightness.
    virtual ErrorCode getExposureTime(unsigned int& value, signed char selector) = 0;

    /// Limits of the gain. UVC: GET_MIN and GET_MAX of Gain.
    virtual ErrorCode getGainRange(unsigned short& minimum, unsigned short& maximum,
                                   signed char selector) = 0;
    /// Sets the gain. UVC: SET_CUR of Gain.
    virtual ErrorCode setGain(unsigned short value, signed char selector) = 0;
    /// Reads the gain. UVC: GET_CUR of Gain.
    virtual ErrorCode getGain(unsigned short& value, signed char selector) = 0;

    /// Size of the images in pixels.
    virtual ErrorCode getMaxImageSize(unsigned int& width, unsigned int& height,
                                      signed char selector) = 0;
    /// Area of interest: size in pixels.
    virtual ErrorCode setInterestSize(unsigned int width, unsigned int height,
                                      signed char selector) = 0;
    virtual ErrorCode getInterestSize(unsigned int& width, unsigned int& height,
                                      signed char selector) = 0;
    /// Area of interest: offset in pixels from the left and the top.
    virtual ErrorCode setAOIOffset(unsigned int x, unsigned int y, signed char selector) = 0;
    virtual ErrorCode getAOIOffset(unsigned int& x, unsigned int& y, signed char selector) = 0;

    /// Pixel format of the frames that the camera sends.
    virtual ErrorCode getPixelFormat(PixelFormatType& format, signed char selector) = 0;

    /// Which cached frame a grab takes. Stored and reported even where the result is NotSupported.
    virtual ErrorCode setTriggerMode(TriggerMode mode, signed char selector) = 0;
    virtual ErrorCode getTriggerMode(TriggerMode& mode, signed char selector) = 0;

    /// Waits for at most 16 frames, then drops every cached frame.
    virtual ErrorCode discardFrames(signed char selector) = 0;
    /// Starts and stops the video stream.
    virtual ErrorCode startStream(signed char selector) = 0;
    virtual ErrorCode stopStream(signed char selector) = 0;

    /// Takes one cached frame, waiting for it if there is none, and appends its images to @p
    /// images. The caller owns the blocks.
    virtual ErrorCode grabImage(QList<ImageBlock*>& images) = 0;

protected:
    ~CameraInterface() = default;
};

} // namespace CameraSpace
