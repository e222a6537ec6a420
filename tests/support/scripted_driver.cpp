#include "scripted_driver.h"

#include "client/property_table.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <thread>

namespace
{

namespace keys = zrn::keys;
using namespace std::chrono_literals;
using CameraSpace::TriggerMode;
using Clock = std::chrono::steady_clock;

constexpr unsigned int shortestExposure = 100;
constexpr unsigned int longestExposure = 500000;

class ScriptedCamera final : public QObject,
                             public CameraSpace::CameraInterface,
                             public CameraSpace::FrameTimesInterface
{
public:
    /// @param tellsTimes whether it has the times of frames
    ScriptedCamera(std::function<std::shared_ptr<ScriptedDevice>(int)> deviceAt, bool tellsTimes)
        : m_deviceAt(std::move(deviceAt))
        , m_tellsTimes(tellsTimes)
    {
    }

    void* qt_metacast(const char* name) override
    {
        using Interface = CameraSpace::FrameTimesInterface;
        const bool isAsked =
            QLatin1String(name) == QLatin1String(qobject_interface_iid<Interface*>());
        return isAsked && m_tellsTimes ? static_cast<Interface*>(this) : QObject::qt_metacast(name);
    }

    ErrorCode grabTimedImage(QList<CameraSpace::ImageBlock*>& images,
                             CameraSpace::FrameTimes& times) override
    {
        const ErrorCode result = grabImage(images);
        if (result == ErrorCode::Success) {
            const qint64 second = 1'000'000'000;
            times.firstPayload = second * (m_device->frameNumber - 1);
            times.lastPayload = times.firstPayload + 2;
            times.handOver = times.firstPayload + 3;
            times.payloadSource = m_device->seesPayloads ? CameraSpace::FrameTimeSource::Payload
                                                         : CameraSpace::FrameTimeSource::Callback;
            times.hasPresentationTime = 1;
            times.presentationTime = 4;
            times.hasSourceClock = 1;
            times.sourceClock = 5;
            times.clockFrequency = 48'000'000;
            times.ringLosses = m_device->ringLosses.exchange(0);
            times.libraryLosses = m_device->libraryLosses.exchange(0);
        }
        return result;
    }

    QString name() override { return QStringLiteral("Scripted"); }
    int types() override { return 1; }

    ErrorCode connectDeviceBySerial(const QString& serial) override
    {
        for (int index = 0; const auto device = m_deviceAt(index); ++index) {
            if (device->serial == serial) {
                return connectDeviceByIndex(index);
            }
        }
        return ErrorCode::SerialNotFound;
    }

    ErrorCode connectDeviceByIndex(int index) override
    {
        std::shared_ptr<ScriptedDevice> device = m_deviceAt(index);
        if (!device) {
            return ErrorCode::BadArgument;
        }
        ++device->connectCount;
        std::this_thread::sleep_for(std::chrono::milliseconds(device->connectMilliseconds));
        const ErrorCode answer = device->connectAnswer;
        if (answer == ErrorCode::Success) {
            m_generation = device->generation.load();
            if (m_device != device) {
                m_device = std::move(device);
            }
            m_isConnected = true;
        }
        return answer;
    }

    ErrorCode reconnectDevice() override { return connected(); }

    ErrorCode disconnectDevice() override
    {
        stopStream(0);
        if (isOpen()) {
            m_device->isOpen = false;
        }
        m_isConnected = false;
        return ErrorCode::Success;
    }

    ErrorCode getProperty(const QString& key, QMap<QString, QVariant>& values) override
    {
        if (!m_isConnected) {
            return ErrorCode::NoCamera;
        }
        if (!zrn::findProperty(key.toStdString())) {
            return ErrorCode::NotSupported;
        }
        const QVariant value = valueOf(key);
        if (!value.isValid()) {
            return ErrorCode::PropertyFailed;
        }
        values[QLatin1String(keys::value)] = value;
        return ErrorCode::Success;
    }

    ErrorCode setProperty(const QString& key, const QMap<QString, QVariant>& values) override
    {
        const QVariant value = values[QLatin1String(keys::value)];
        if (key == QLatin1String(keys::maxGrabWaitTime)) {
            m_timeout = value.toInt();
            return ErrorCode::Success;
        }
        if (key == QLatin1String(keys::cacheFrameCount)) {
            if (m_streaming || value.toInt() < 1) {
                return ErrorCode::PropertyFailed;
            }
            m_cache = value.toInt();
            return ErrorCode::Success;
        }
        if (key == QLatin1String(keys::enableCheckGain)) {
            m_gainCheck = value.toBool();
            return ErrorCode::Success;
        }
        if (key == QLatin1String(keys::enableCheckExposureTime)) {
            m_exposureCheck = value.toBool();
            return ErrorCode::Success;
        }
        if (!reachable()) {
            return ErrorCode::PropertyFailed;
        }
        const std::lock_guard lock(m_device->mutex);
        int* carrier = carrierOf(key);
        if (!carrier) {
            return ErrorCode::NotSupported;
        }
        const bool isColourGain = key.endsWith(QLatin1String("Gain"));
        if (isColourGain) {
            for (int* other :
                 {&m_device->gamma, &m_device->sharpness, &m_device->hue, &m_device->saturation}) {
                *other &= 0xff;
            }
        }
        *carrier = isColourGain ? value.toInt() & 0xff : value.toInt();
        return ErrorCode::Success;
    }

    ErrorCode executeCommand(const QString& command, QMap<QString, QVariant>&) override
    {
        if (command != QLatin1String(keys::clearState)) {
            return ErrorCode::NotSupported;
        }
        if (!reachable()) {
            return ErrorCode::CommandFailed;
        }
        ++m_device->resets;
        return m_device->resetAnswer;
    }

    ErrorCode getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                   signed char) override
    {
        minimum = shortestExposure;
        maximum = longestExposure;
        return reachable() ? ErrorCode::Success : ErrorCode::ExposureRangeFailed;
    }

    ErrorCode setExposureTime(unsigned int value, signed char) override
    {
        if (value < shortestExposure || value > longestExposure) {
            return ErrorCode::BadArgument;
        }
        if (!reachable()) {
            return ErrorCode::ExposureWriteFailed;
        }
        const ErrorCode answer = m_device->exposureAnswer;
        if (answer == ErrorCode::Success) {
            const std::lock_guard lock(m_device->mutex);
            m_device->exposure = value / 100 * 100; // the camera counts in steps
        }
        return answer;
    }

    ErrorCode getExposureTime(unsigned int& value, signed char) override
    {
        if (!reachable()) {
            return ErrorCode::ExposureReadFailed;
        }
        const std::lock_guard lock(m_device->mutex);
        value = m_device->exposure;
        return m_device->exposureReadAnswer;
    }

    ErrorCode getGainRange(unsigned short& minimum, unsigned short& maximum, signed char) override
    {
        minimum = 1;
        maximum = 64;
        return ErrorCode::Success;
    }

    ErrorCode setGain(unsigned short value, signed char) override
    {
        if (!reachable()) {
            return ErrorCode::GainWriteFailed;
        }
        const ErrorCode answer = m_device->gainAnswer;
        if (answer == ErrorCode::Success) {
            const std::lock_guard lock(m_device->mutex);
            m_device->gain = value;
        }
        return answer;
    }

    ErrorCode getGain(unsigned short& value, signed char) override
    {
        if (!reachable()) {
            return ErrorCode::GainReadFailed;
        }
        const std::lock_guard lock(m_device->mutex);
        value = m_device->gain;
        return ErrorCode::Success;
    }

    ErrorCode getMaxImageSize(unsigned int& width, unsigned int& height, signed char) override
    {
        width = static_cast<unsigned int>(m_device->width);
        height = static_cast<unsigned int>(m_device->height);
        return ErrorCode::Success;
    }
    ErrorCode setInterestSize(unsigned int, unsigned int, signed char) override
    {
        return ErrorCode::NotSupported;
    }
    ErrorCode getInterestSize(unsigned int& width, unsigned int& height, signed char s) override
    {
        return getMaxImageSize(width, height, s);
    }
    ErrorCode setAOIOffset(unsigned int, unsigned int, signed char) override
    {
        return ErrorCode::NotSupported;
    }
    ErrorCode getAOIOffset(unsigned int&, unsigned int&, signed char) override
    {
        return ErrorCode::NotSupported;
    }
    ErrorCode getPixelFormat(CameraSpace::PixelFormatType& format, signed char) override
    {
        format = CameraSpace::PixelFormatType::Packed16;
        return ErrorCode::Success;
    }
    ErrorCode setTriggerMode(TriggerMode mode, signed char) override
    {
        m_mode = mode;
        return ErrorCode::NotSupported;
    }
    ErrorCode getTriggerMode(TriggerMode& mode, signed char) override
    {
        mode = m_mode;
        return ErrorCode::NotSupported;
    }
    ErrorCode discardFrames(signed char) override { return ErrorCode::Success; }

    ErrorCode startStream(signed char) override
    {
        if (!reachable()) {
            return m_isConnected ? ErrorCode::StreamStartFailed : ErrorCode::NoCamera;
        }
        const ErrorCode answer = m_device->startAnswer;
        m_isFrameAwaited = false;
        m_streaming = answer == ErrorCode::Success;
        ++m_device->startCount;
        return answer;
    }

    ErrorCode stopStream(signed char) override
    {
        const std::lock_guard lock(m_mutex);
        if (!m_streaming) {
            return ErrorCode::NotStreaming;
        }
        m_streaming = false;
        m_stopped.notify_all();
        return ErrorCode::Success;
    }

    ErrorCode grabImage(QList<CameraSpace::ImageBlock*>& images) override
    {
        std::unique_lock lock(m_mutex);
        if (!m_streaming) {
            return ErrorCode::NotStreaming;
        }
        const bool sends = isOpen() && !m_device->silent;
        if (m_device->onGrab) {
            m_device->onGrab();
        }
        if (!m_isFrameAwaited) {
            m_frameDue = Clock::now() + std::chrono::milliseconds(m_device->frameMilliseconds);
        }
        const auto end = Clock::now() + std::chrono::milliseconds(m_timeout);
        m_isFrameAwaited = sends && m_frameDue > end;
        m_stopped.wait_until(lock, sends ? std::min(m_frameDue, end) : end,
                             [this] { return !m_streaming; });
        if (!m_streaming || !sends || !isOpen() || m_isFrameAwaited) {
            return ErrorCode::GrabTimeout;
        }
        if (m_device->grabAnswer != ErrorCode::Success) {
            return m_device->grabAnswer;
        }
        quint32 number = m_device->frameNumber;
        if (number >= m_device->skipFrom) {
            number += m_device->skipNext.exchange(0);
        }
        m_device->frameNumber = number + 1;
        for (const char letter : {'A', 'B'}) {
            if (letter == 'A' && m_device->sensorCount == 1) {
                continue;
            }
            auto* block = new CameraSpace::ImageBlock;
            block->width = m_device->width;
            block->height = m_device->height;
            block->bitsPerPixel = 8;
            block->data = scriptedImage(*m_device, number, letter);
            images.append(block);
        }
        return ErrorCode::Success;
    }

private:
    ErrorCode connected() const
    {
        return m_isConnected ? ErrorCode::Success : ErrorCode::NotConnected;
    }

    /// Neither unplugged nor closed by a later search.
    bool isOpen() const
    {
        return m_isConnected && m_device->plugged && m_device->generation == m_generation;
    }

    bool reachable() const
    {
        while (isOpen() && m_device->hanging) {
            std::this_thread::sleep_for(5ms);
        }
        return isOpen() && !m_device->deaf;
    }

    double frameRate() const { return 1000.0 / m_device->frameMilliseconds; }

    int* carrierOf(const QString& key) const
    {
        struct Row {
            const char* key;
            int* value;
        };
        for (const Row& row : {Row{keys::gamma, &m_device->gamma},
                               {keys::rGain, &m_device->gamma},
                               {keys::sharp, &m_device->sharpness},
                               {keys::grGain, &m_device->sharpness},
                               {keys::hue, &m_device->hue},
                               {keys::gbGain, &m_device->hue},
                               {keys::bGain, &m_device->saturation}}) {
            if (key == QLatin1String(row.key)) {
                return row.value;
            }
        }
        return nullptr;
    }

    QVariant valueOf(const QString& key)
    {
        if (key == QLatin1String(keys::serial)) {
            return m_device->serial;
        }
        if (key == QLatin1String(keys::sensorCount)) {
            return m_device->sensorCount;
        }
        if (key == QLatin1String(keys::heartBeat)) {
            return QVariantMap{{QLatin1String(keys::online), reachable()},
                               {QLatin1String(keys::statusFrameRate), frameRate()}};
        }
        if (key == QLatin1String(keys::frameRate)) {
            return frameRate();
        }
        if (key == QLatin1String(keys::maxGrabWaitTime)) {
            return static_cast<uint>(m_timeout);
        }
        if (key == QLatin1String(keys::cacheFrameCount)) {
            return m_streaming ? QVariant() : QVariant(m_cache.load());
        }
        if (key == QLatin1String(keys::enableCheckGain)) {
            return m_gainCheck.load();
        }
        if (key == QLatin1String(keys::enableCheckExposureTime)) {
            return m_exposureCheck.load();
        }
        if (!reachable()) {
            return {};
        }
        const std::lock_guard lock(m_device->mutex);
        const int* carrier = carrierOf(key);
        if (!carrier) {
            return {};
        }
        return key.endsWith(QLatin1String("Gain")) ? *carrier & 0xff : *carrier;
    }

    const std::function<std::shared_ptr<ScriptedDevice>(int)> m_deviceAt;
    const bool m_tellsTimes;
    std::shared_ptr<ScriptedDevice> m_device; // stays, as other threads may be asking it
    std::atomic<bool> m_isConnected = false;
    std::atomic<int> m_generation = 0;
    std::atomic<bool> m_streaming = false;
    bool m_isFrameAwaited = false; // by grabs that waited for less than a period
    Clock::time_point m_frameDue;
    std::atomic<int> m_timeout = 200;
    std::atomic<int> m_cache = 16;
    std::atomic<bool> m_gainCheck = true;
    std::atomic<bool> m_exposureCheck = true;
    std::atomic<TriggerMode> m_mode = TriggerMode::Oldest;
    std::mutex m_mutex;
    std::condition_variable m_stopped;
};

} // namespace

unsigned ScriptedDevice::nextBus()
{
    static std::atomic<unsigned> last = 0;
    return ++last;
}

QString ScriptedDevice::place() const
{
    return QStringLiteral("%1/%2")
        .arg(bus, 3, 10, QLatin1Char('0'))
        .arg(address.load(), 3, 10, QLatin1Char('0'));
}

void ScriptedDevice::replug()
{
    {
        const std::lock_guard lock(mutex);
        exposure = 1000;
        gain = 16;
        gamma = 100;
        sharpness = 50;
        hue = 20;
        saturation = 60;
        readSerial.clear();
    }
    ++generation;
    ++address;
    isOpen = false;
    plugged = true;
}

QByteArray bytesOf(const zrn::Image& image)
{
    return {reinterpret_cast<const char*>(image.bytes.data()),
            static_cast<int>(image.bytes.size())};
}

QByteArray scriptedImage(const ScriptedDevice& device, quint32 number, char letter)
{
    const int pixels = device.width * device.height;
    QByteArray data(pixels + 8, Qt::Uninitialized);
    for (int y = 0; y < device.height; ++y) {
        for (int x = 0; x < device.width; ++x) {
            const int value = letter == 'A' ? x * 3 + y + static_cast<int>(number)
                                            : x + y * 4 + static_cast<int>(number) * 2;
            data[y * device.width + x] = static_cast<char>(value);
        }
    }
    quint64 trailer = 0;
    for (int byte = 0; byte < 4; ++byte) {
        const auto extended = static_cast<qint64>(static_cast<qint8>(number >> (8 * byte)));
        trailer |= static_cast<quint64>(extended) << (8 * byte);
    }
    std::memcpy(data.data() + pixels, &trailer, sizeof trailer);
    return data;
}

ScriptedFactory::~ScriptedFactory()
{
    for (CameraSpace::CameraInterface* camera : m_cameras) {
        delete static_cast<ScriptedCamera*>(camera);
    }
}

ScriptedFactory::ScriptedFactory(Devices devices, bool canChoose)
    : m_devices(std::move(devices))
{
    if (canChoose) {
        setProperty(deviceSerialsProperty, QVariantMap());
    }
}

int ScriptedFactory::enumDevice()
{
    const std::lock_guard lock(m_mutex);
    const QStringList chosen = property(devicesProperty).toStringList();
    if (!chosen.isEmpty()) {
        openChosen(chosen);
        return static_cast<int>(m_enumerated.size());
    }
    m_enumerated.clear();
    for (const std::shared_ptr<ScriptedDevice>& device : m_devices) {
        ++device->generation;
        if (device->plugged) {
            ++device->openCount;
            m_enumerated.push_back(device);
        }
    }
    return static_cast<int>(m_enumerated.size());
}

void ScriptedFactory::openChosen(const QStringList& places)
{
    m_enumerated.clear();
    QVariantMap serials;
    for (const std::shared_ptr<ScriptedDevice>& device : m_devices) {
        if (places.contains('-' + device->place())) {
            ++device->generation;
            device->isOpen = false;
        }
        if (device->plugged && !device->heldElsewhere && places.contains(device->place())) {
            ++device->generation;
            ++device->openCount;
            device->isOpen = true;
            const std::lock_guard lock(device->mutex);
            device->readSerial = device->misreadings-- > 0 ? QStringLiteral("ZR0") : device->serial;
        }
        device->isOpen = device->isOpen && device->plugged;
        if (device->isOpen) {
            m_enumerated.push_back(device);
            const std::lock_guard lock(device->mutex);
            serials[device->place()] = device->readSerial;
        }
    }
    setProperty(deviceSerialsProperty, serials);
}

BaseDeviceSpace::DeviceInterface* ScriptedFactory::createDevice()
{
    const std::lock_guard lock(m_mutex);
    const bool tellsTimes = std::ranges::any_of(
        m_devices, [](const auto& device) { return device->tellsTimes.load(); });
    auto* camera = new ScriptedCamera(
        [this](int index) -> std::shared_ptr<ScriptedDevice> {
            const std::lock_guard inner(m_mutex);
            const auto position = static_cast<std::size_t>(index);
            return position < m_enumerated.size() ? m_enumerated[position] : nullptr;
        },
        tellsTimes);
    m_cameras.push_back(camera);
    return camera;
}

ErrorCode ScriptedFactory::deleteDevice(BaseDeviceSpace::DeviceInterface*& device)
{
    const std::lock_guard lock(m_mutex);
    const auto found = std::find(m_cameras.begin(), m_cameras.end(), device);
    if (found == m_cameras.end()) {
        return ErrorCode::NothingEnumerated;
    }
    auto* camera = static_cast<ScriptedCamera*>(*found);
    camera->disconnectDevice();
    delete camera;
    m_cameras.erase(found);
    device = nullptr;
    return ErrorCode::Success;
}

int ScriptedFactory::liveCameras()
{
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(m_cameras.size());
}

zrn::BusReaders ScriptedFactory::readersOf(const Devices& devices)
{
    const zrn::BusReader read = [devices] {
        std::vector<zrn::BusCamera> cameras;
        for (const std::shared_ptr<ScriptedDevice>& device : devices) {
            if (!device->plugged) {
                continue;
            }
            zrn::BusCamera camera;
            camera.port = device->serial.toStdString();
            camera.bus = device->bus;
            camera.address = device->address;
            {
                const std::lock_guard lock(device->mutex);
                camera.serial = device->readSerial.toStdString();
            }
            camera.nodeExists = true;
            camera.accessible = true;
            if (device->heldElsewhere) {
                camera.use = zrn::Use::Held;
                camera.holders = {{4711, "other"}};
            } else if (device->isOpen) {
                camera.use = zrn::Use::Held;
            }
            cameras.push_back(camera);
        }
        return cameras;
    };
    return {read, read, [](const zrn::BusCamera&, const std::string&) {}};
}

std::shared_ptr<zrn::Driver> ScriptedFactory::driverFor(const Devices& devices)
{
    return std::make_shared<zrn::Driver>(std::make_shared<ScriptedFactory>(devices, true),
                                         readersOf(devices));
}
