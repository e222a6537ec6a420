#include "atomic_field.h"
#include "key_hash.h"
#include "sensor_types.h"
#include "zrn_camera.h"

namespace
{

constexpr std::uint64_t clearStateCommand = 0xDE36C5592BFE6027;

constexpr unsigned bitsPerByte = 8;
constexpr quint64 byteMask = 0xFF;

quint8 byteOf(long packed, int byte)
{
    return static_cast<quint8>(static_cast<quint64>(packed) >>
                               (bitsPerByte * static_cast<unsigned>(byte)));
}

/// Reads one 16-bit control into @p value, sign- or zero-extended as its type says.
template <typename T>
bool readControl(const DeviceAccess& device,
                 uvc_error_t (*getter)(uvc_device_handle_t*, T*, uvc_req_code), int& value)
{
    T current = 0;
    if (device.call(getter, &current, UVC_GET_CUR) != UVC_SUCCESS) {
        return false;
    }
    value = current;
    return true;
}

/// Reads or writes one 16-bit control; a written value is cut to the control's type.
template <typename T>
bool controlIO(const DeviceAccess& device, bool read, int& value,
               uvc_error_t (*getter)(uvc_device_handle_t*, T*, uvc_req_code),
               uvc_error_t (*setter)(uvc_device_handle_t*, T))
{
    if (!device) {
        return false;
    }
    if (read) {
        return readControl(device, getter, value);
    }
    return device.call(setter, static_cast<T>(value)) == UVC_SUCCESS;
}

} // namespace

bool CZRNCamera::hueIO(bool read, int& value)
{
    const Operation operation;
    return controlIO(accessDevice(), read, value, uvc_get_hue, uvc_set_hue);
}

bool CZRNCamera::sharpIO(bool read, int& value)
{
    const Operation operation;
    return controlIO(accessDevice(), read, value, uvc_get_sharpness, uvc_set_sharpness);
}

bool CZRNCamera::gammaIO(bool read, int& value)
{
    const Operation operation;
    return controlIO(accessDevice(), read, value, uvc_get_gamma, uvc_set_gamma);
}

bool CZRNCamera::colorRGBGainIO(bool read, long& packed)
{
    const Operation operation;
    const DeviceAccess device = accessDevice();
    if (!device) {
        return false;
    }

    if (!read) {
        if (device.call(uvc_set_gamma, byteOf(packed, 0)) != UVC_SUCCESS) {
            return false;
        }
        device.call(uvc_set_sharpness, byteOf(packed, 1));
        device.call(uvc_set_hue, byteOf(packed, 2));
        device.call(uvc_set_saturation, byteOf(packed, 3));
        return true;
    }

    // One buffer serves the three unsigned controls: where a read fails, the value before it counts
    // again. Values above a byte spill over, a negative hue sets every bit above its place.
    uint16_t value = 0;
    int16_t hue = 0;
    if (device.call(uvc_get_gamma, &value, UVC_GET_CUR) != UVC_SUCCESS) {
        return false;
    }
    quint64 word = value;
    device.call(uvc_get_sharpness, &value, UVC_GET_CUR);
    word |= static_cast<quint64>(value) << bitsPerByte;
    device.call(uvc_get_hue, &hue, UVC_GET_CUR);
    word |= static_cast<quint64>(static_cast<qint64>(hue)) << (2 * bitsPerByte);
    device.call(uvc_get_saturation, &value, UVC_GET_CUR);
    word |= static_cast<quint64>(value) << (3 * bitsPerByte);
    packed = static_cast<long>(word);
    return true;
}

bool CZRNCamera::colorByteIO(int byte, bool read, int& value)
{
    const Operation operation;
    long packed = 0;
    if (!colorRGBGainIO(true, packed)) {
        return false;
    }
    if (read) {
        value = byteOf(packed, byte);
        return true;
    }
    const unsigned shift = bitsPerByte * static_cast<unsigned>(byte);
    const quint64 others = static_cast<quint64>(packed) & ~(byteMask << shift);
    const quint64 replaced = (static_cast<quint64>(value) & byteMask) << shift;
    packed = static_cast<long>(others | replaced);
    return colorRGBGainIO(false, packed);
}

bool CZRNCamera::colorRGainIO(bool read, int& value)
{
    return colorByteIO(0, read, value);
}

bool CZRNCamera::colorGRGainIO(bool read, int& value)
{
    return colorByteIO(1, read, value);
}

bool CZRNCamera::colorGBGainIO(bool read, int& value)
{
    return colorByteIO(2, read, value);
}

bool CZRNCamera::colorBGainIO(bool read, int& value)
{
    return colorByteIO(3, read, value);
}

bool CZRNCamera::resetCameraState()
{
    const Operation operation;
    if (!sensorTypeOf(shared(m_sensorType).load()).hasReset) {
        return false;
    }
    const DeviceAccess device = accessDevice();
    if (!device) {
        return true;
    }
    uint16_t contrast = 0;
    uvc_error_t result = device.call(uvc_get_contrast, &contrast, UVC_GET_CUR);
    if (result != UVC_SUCCESS) {
        logCritical() << "uvc_get_contrast get cur failed, ret:" << result;
        return false;
    }
    result = device.call(uvc_set_contrast, contrast);
    if (result != UVC_SUCCESS) {
        logCritical() << "reset camera state failed, ret:" << result;
        return false;
    }
    return true;
}

ErrorCode CZRNCamera::executeCommand(const QString& command, QMap<QString, QVariant>& /*values*/)
{
    const Operation operation;
    if (!isConnected()) {
        return ErrorCode::NoCamera;
    }
    if (keyHash(command) != clearStateCommand) {
        return ErrorCode::NotSupported;
    }
    return resetCameraState() ? ErrorCode::Success : ErrorCode::CommandFailed;
}
