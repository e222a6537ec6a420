#include "atomic_field.h"
#include "driver_clock.h"
#include "sensor_types.h"
#include "zrn_camera.h"

#include <QMutexLocker>

#include <chrono>

namespace
{

// A value that reads back differently is written once more.
constexpr int writeAttempts = 2;

/// The pause before a write and before a read-back.
void pace()
{
    sleepFor(std::chrono::milliseconds(32));
}

} // namespace

ErrorCode CZRNCamera::getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                           signed char /*selector*/)
{
    const Operation operation;
    const DeviceAccess device = accessDevice();
    if (!device) {
        return ErrorCode::NoCamera;
    }

    int16_t count = 0;
    const uvc_error_t maximumResult = device.call(uvc_get_brightness, &count, UVC_GET_MAX);
    if (maximumResult == UVC_SUCCESS) {
        maximum = static_cast<quint32>(static_cast<qint32>(count));
    } else {
        logCritical() << " uvc_get_exposure_abs get max failed ret:" << maximumResult;
    }
    pace();
    const uvc_error_t minimumResult = device.call(uvc_get_brightness, &count, UVC_GET_MIN);
    if (minimumResult == UVC_SUCCESS) {
        minimum = static_cast<quint32>(static_cast<qint32>(count));
    }

    // A limit that could not be read is the caller's own, and is converted all the same.
    const ExposureStep step = sensorTypeOf(shared(m_sensorType).load()).exposureStep;
    minimum = exposureLimitFromDevice(step, minimum);
    maximum = exposureLimitFromDevice(step, maximum);
    return maximumResult == UVC_SUCCESS && minimumResult == UVC_SUCCESS
               ? ErrorCode::Success
               : ErrorCode::ExposureRangeFailed;
}

ErrorCode CZRNCamera::setExposureTime(unsigned int value, signed char /*selector*/)
{
    const Operation operation;
    if (value < shared(m_minExposureTime).load() || value > shared(m_maxExposureTime).load()) {
        return ErrorCode::BadArgument;
    }
    const ExposureStep step = sensorTypeOf(shared(m_sensorType).load()).exposureStep;
    const int16_t count = exposureToDevice(step, value);
    const DeviceAccess device = accessDevice();
    if (!device) {
        return ErrorCode::NoCamera;
    }

    const bool readBack = shared(m_exposureReadBack).load();
    for (int attempt = 0; attempt < writeAttempts; ++attempt) {
        const bool log = attempt == 0;
        pace();
        uvc_error_t result = device.call(uvc_set_brightness, count);
        if (result != UVC_SUCCESS) {
            if (log) {
                logCritical() << " uvc_set_exposure_abs failed ret:" << result;
            }
            return ErrorCode::ExposureWriteFailed;
        }
        int16_t current = count;
        if (readBack) {
            pace();
            current = 0;
            result = device.call(uvc_get_brightness, &current, UVC_GET_CUR);
            if (result != UVC_SUCCESS) {
                if (log) {
                    logCritical() << " uvc_get_exposure_abs failed ret:" << result;
                }
                return ErrorCode::ExposureReadFailed;
            }
        }
        if (current == count) {
            shared(m_exposureTime).store(count);
            return ErrorCode::Success;
        }
    }
    return ErrorCode::ExposureReadFailed;
}

ErrorCode CZRNCamera::getExposureTime(unsigned int& value, signed char /*selector*/)
{
    const Operation operation;
    const DeviceAccess device = accessDevice();
    if (!device) {
        return ErrorCode::NoCamera;
    }
    int16_t count = 0;
    const uvc_error_t result = device.call(uvc_get_brightness, &count, UVC_GET_CUR);
    if (result != UVC_SUCCESS) {
        logCritical() << " uvc_get_exposure_abs get_cur failed ret:" << result;
        return ErrorCode::ExposureReadFailed;
    }
    value = exposureFromDevice(sensorTypeOf(shared(m_sensorType).load()).exposureStep, count);
    return ErrorCode::Success;
}

ErrorCode CZRNCamera::getGainRange(unsigned short& minimum, unsigned short& maximum,
                                   signed char /*selector*/)
{
    const Operation operation;
    const DeviceAccess device = accessDevice();
    if (!device) {
        return ErrorCode::NoCamera;
    }
    if (device.call(uvc_get_gain, &minimum, UVC_GET_MIN) != UVC_SUCCESS) {
        minimum = shared(m_minGain).load();
    }
    if (device.call(uvc_get_gain, &maximum, UVC_GET_MAX) != UVC_SUCCESS) {
        maximum = shared(m_maxGain).load();
    }
    return ErrorCode::Success;
}

ErrorCode CZRNCamera::setGain(unsigned short value, signed char /*selector*/)
{
    const Operation operation;
    if (value < shared(m_minGain).load() || value > shared(m_maxGain).load()) {
        return ErrorCode::BadArgument;
    }
    const DeviceAccess device = accessDevice();
    if (!device) {
        return ErrorCode::NoCamera;
    }

    const bool readBack = shared(m_gainReadBack).load();
    for (int attempt = 0; attempt < writeAttempts; ++attempt) {
        const bool firstAttempt = attempt == 0;
        uvc_error_t result = UVC_SUCCESS;
        if (firstAttempt) {
            const QMutexLocker control(&m_controlMutex);
            pace();
            result = device.call(uvc_set_gain, value);
        } else {
            pace();
            const QMutexLocker control(&m_controlMutex);
            result = device.call(uvc_set_gain, value);
            if (result == UVC_SUCCESS) {
                pace();
            }
        }
        if (result != UVC_SUCCESS) {
            if (firstAttempt) {
                logCritical() << " uvc_set_gain failed ret:" << result;
            }
            return ErrorCode::GainWriteFailed;
        }

        uint16_t current = value;
        if (readBack) {
            if (firstAttempt) {
                pace();
            }
            current = 0;
            result = device.call(uvc_get_gain, &current, UVC_GET_CUR);
            if (result != UVC_SUCCESS) {
                if (firstAttempt) {
                    logCritical() << " uvc_get_gain get cur failed ret:" << result;
                }
                return ErrorCode::GainReadFailed;
            }
        }
        if (current == value) {
            shared(m_gain).store(value);
            return ErrorCode::Success;
        }
    }
    return ErrorCode::GainWriteFailed;
}

ErrorCode CZRNCamera::getGain(unsigned short& value, signed char /*selector*/)
{
    const Operation operation;
    const DeviceAccess device = accessDevice();
    if (!device) {
        return ErrorCode::NoCamera;
    }
    uint16_t current = 0;
    uvc_error_t result = UVC_SUCCESS;
    {
        const QMutexLocker control(&m_controlMutex);
        result = device.call(uvc_get_gain, &current, UVC_GET_CUR);
    }
    if (result != UVC_SUCCESS) {
        logCritical() << " uvc_get_gain get cur failed ret:" << result;
        return ErrorCode::GainReadFailed;
    }
    value = current;
    return ErrorCode::Success;
}

ErrorCode CZRNCamera::getMaxImageSize(unsigned int& width, unsigned int& height,
                                      signed char /*selector*/)
{
    const Operation operation;
    if (!isConnected()) {
        return ErrorCode::NoCamera;
    }
    const FrameGeometry geometry = frameGeometry();
    width = static_cast<quint32>(geometry.width);
    height = static_cast<quint32>(geometry.height);
    return ErrorCode::Success;
}

ErrorCode CZRNCamera::setInterestSize(unsigned int /*width*/, unsigned int /*height*/,
                                      signed char /*selector*/)
{
    return ErrorCode::NotSupported;
}

ErrorCode CZRNCamera::getInterestSize(unsigned int& width, unsigned int& height,
                                      signed char selector)
{
    return getMaxImageSize(width, height, selector);
}

ErrorCode CZRNCamera::setAOIOffset(unsigned int /*x*/, unsigned int /*y*/, signed char /*selector*/)
{
    return ErrorCode::NotSupported;
}

ErrorCode CZRNCamera::getAOIOffset(unsigned int& /*x*/, unsigned int& /*y*/,
                                   signed char /*selector*/)
{
    return ErrorCode::NotSupported;
}

ErrorCode CZRNCamera::getPixelFormat(CameraSpace::PixelFormatType& format, signed char /*selector*/)
{
    const Operation operation;
    if (!isConnected()) {
        return ErrorCode::NoCamera;
    }
    format = shared(m_pixelFormat).load();
    return ErrorCode::Success;
}

ErrorCode CZRNCamera::setTriggerMode(CameraSpace::TriggerMode mode, signed char /*selector*/)
{
    // The camera knows no trigger; the mode only tells grabImage which frame to take.
    shared(m_triggerMode).store(mode);
    return ErrorCode::NotSupported;
}

ErrorCode CZRNCamera::getTriggerMode(CameraSpace::TriggerMode& mode, signed char /*selector*/)
{
    mode = shared(m_triggerMode).load();
    return ErrorCode::NotSupported;
}
