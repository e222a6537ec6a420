#include "client/camera.h"

#include "client/camera_object.h"
#include "client/known_settings.h"
#include "client/usb_transfers.h"
#include "client/variants.h"

#include <algorithm>

namespace zrn
{
namespace
{

using CameraSpace::TriggerMode;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

QString toQt(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

/// Whether a control of the camera carries the property.
bool isOfCamera(std::string_view key)
{
    const PropertyInfo* const property = findProperty(key);
    return property && *property->carrier != '\0';
}

/// A driver may store the frame order and answer NotSupported all the same.
void checkOrder(ErrorCode code, const std::string& tried)
{
    check(code == ErrorCode::NotSupported ? ErrorCode::Success : code, tried);
}

} // namespace

std::shared_ptr<Camera> Camera::open(std::shared_ptr<Driver> driver, CameraChoice choice,
                                     const SearchPatience& patience)
{
    const std::shared_ptr<Camera> camera(new Camera(std::move(driver), std::move(choice)));
    camera->find(patience);
    return camera;
}

std::shared_ptr<Camera> Camera::open(CameraChoice choice)
{
    return open(Driver::load(), std::move(choice));
}

std::shared_ptr<Camera> Camera::connect(std::shared_ptr<Driver> driver, const BusCamera& camera)
{
    const std::shared_ptr<Camera> result(new Camera(std::move(driver), {}));
    result->connectTo(camera);
    result->learn();
    return result;
}

Camera::Camera(std::shared_ptr<Driver> driver, CameraChoice choice)
    : m_driver(std::move(driver))
    , m_search(*m_driver)
    , m_object(std::make_unique<CameraObject>(m_driver->factory()))
    , m_known(std::make_shared<KnownSettings>())
    , m_choice(std::move(choice))
{
}

void Camera::find(const SearchPatience& patience)
{
    if (m_driver->canChoose()) {
        connectTo(m_search.find(m_choice, patience));
    } else {
        connectEnumerated();
    }
    learn();
}

Camera::~Camera() = default;

CameraFacts Camera::facts() const
{
    const std::lock_guard lock(m_mutex);
    return m_facts;
}

std::string Camera::port() const
{
    const std::lock_guard lock(m_mutex);
    return m_choice.port;
}

microseconds Camera::exposure()
{
    const auto asked = Clock::now();
    unsigned int value = 0;
    check((*m_object)->getExposureTime(value, 0), "reading the exposure time");
    noteExposure(value, asked);
    return microseconds(value);
}

Range<microseconds> Camera::exposureRange()
{
    unsigned int minimum = 0;
    unsigned int maximum = 0;
    check((*m_object)->getExposureTimeRange(minimum, maximum, 0), "reading the exposure range");
    return {microseconds(minimum), microseconds(maximum)};
}

void Camera::setExposure(microseconds exposure)
{
    const std::lock_guard setting(m_settingMutex);
    writeExposure(exposure);
    remember("exposure", [this, exposure] { writeExposure(exposure); });
}

void Camera::writeExposure(microseconds exposure)
{
    const std::string tried = "setting the exposure time to " + std::to_string(exposure.count());
    if (exposure.count() < 0 || exposure.count() > std::numeric_limits<unsigned int>::max()) {
        throw Error(tried, ErrorCode::BadArgument);
    }
    const auto value = static_cast<unsigned int>(exposure.count());
    check((*m_object)->setExposureTime(value, 0), tried);
    noteExposure(value, Clock::now());
}

std::uint32_t Camera::gain()
{
    const auto asked = Clock::now();
    unsigned short value = 0;
    check((*m_object)->getGain(value, 0), "reading the gain");
    noteGain(value, asked);
    return value;
}

Range<std::uint32_t> Camera::gainRange()
{
    unsigned short minimum = 0;
    unsigned short maximum = 0;
    check((*m_object)->getGainRange(minimum, maximum, 0), "reading the gain range");
    return {minimum, maximum};
}

void Camera::setGain(std::uint32_t gain)
{
    const std::lock_guard setting(m_settingMutex);
    writeGain(gain);
    remember("gain", [this, gain] { writeGain(gain); });
}

void Camera::writeGain(std::uint32_t gain)
{
    const std::string tried = "setting the gain to " + std::to_string(gain);
    if (gain > std::numeric_limits<unsigned short>::max()) {
        throw Error(tried, ErrorCode::BadArgument);
    }
    const auto value = static_cast<unsigned short>(gain);
    check((*m_object)->setGain(value, 0), tried);
    noteGain(value, Clock::now());
}

FrameOrder Camera::order()
{
    auto mode = TriggerMode::Oldest;
    checkOrder((*m_object)->getTriggerMode(mode, 0), "reading the frame order");
    return mode == TriggerMode::Newest ? FrameOrder::Newest : FrameOrder::Oldest;
}

void Camera::setOrder(FrameOrder order)
{
    const std::lock_guard setting(m_settingMutex);
    writeOrder(order);
    remember("order", [this, order] { writeOrder(order); });
}

void Camera::writeOrder(FrameOrder order)
{
    const auto mode = order == FrameOrder::Newest ? TriggerMode::Newest : TriggerMode::Oldest;
    checkOrder((*m_object)->setTriggerMode(mode, 0), "setting the frame order");
    m_known->note({"FrameOrder", std::string(order == FrameOrder::Newest ? "newest" : "oldest"),
                   Clock::now()});
}

Value Camera::property(std::string_view key)
{
    const auto asked = Clock::now();
    QVariant variant;
    check(m_object->readProperty(toQt(key), variant), "reading " + std::string(key));
    const PropertyInfo* const info = findProperty(key);
    if (info && info->writable) {
        m_known->note({std::string(key), fromVariant(variant), asked});
    }
    return fromVariant(variant);
}

void Camera::setProperty(std::string_view key, const Value& value)
{
    const std::string name(key);
    const std::lock_guard setting(m_settingMutex);
    writeProperty(name, value);
    remember(name, [this, name, value] { writeProperty(name, value); });
}

void Camera::writeProperty(const std::string& key, const Value& value)
{
    check(m_object->writeProperty(toQt(key), toVariant(value)),
          "setting " + key + " to " + toText(value));
    m_known->note({key, value, Clock::now()});
    if (isOfCamera(key) && m_known->areWatched()) {
        readKnown();
    }
}

void Camera::run(std::string_view command)
{
    const std::lock_guard setting(m_settingMutex);
    check(m_object->run(toQt(command)), "running the command " + std::string(command));
    if (command == keys::clearState) {
        m_settings.clear();
        learnSettings();
    }
}

CameraStatus Camera::status()
{
    QVariant variant;
    m_object->readProperty(toQt(keys::heartBeat), variant);
    const Value record = fromVariant(variant);
    const Value* online = findField(record, keys::online);
    const Value* rate = findField(record, keys::statusFrameRate);
    return {online && numberOf(*online) != 0.0, rate ? numberOf(*rate) : 0.0};
}

void Camera::discardFrames()
{
    check((*m_object)->discardFrames(0), "dropping cached frames");
}

void Camera::close()
{
    const std::lock_guard opening(m_openingMutex);
    (*m_object)->disconnectDevice();
}

void Camera::reopen()
{
    const std::lock_guard opening(m_openingMutex);
    CameraChoice choice;
    {
        const std::lock_guard lock(m_mutex);
        choice = m_choice;
    }
    (*m_object)->disconnectDevice();
    if (m_driver->canChoose()) {
        connectTo(m_search.findNow(choice));
    } else if (m_driver->openAll() < 1) {
        throw noCameraOnBus();
    } else {
        check((*m_object)->connectDeviceBySerial(toQt(choice.serial)),
              "connecting to the camera with serial " + choice.serial);
    }
    learn();
    restoreSettings();
}

void Camera::restoreSettings()
{
    std::unique_lock lock(m_settingMutex);
    const auto settings = m_settings;
    lock.unlock();
    for (const auto& [name, ignored] : settings) {
        lock.lock(); // for each, so that who sets one waits for one
        const auto now = std::ranges::find(m_settings, name, &Setting::first);
        if (now != m_settings.end()) {
            now->second();
        }
        lock.unlock();
    }
}

void Camera::remember(std::string_view name, std::function<void()> set)
{
    std::erase_if(m_settings, [name](const auto& setting) { return setting.first == name; });
    m_settings.emplace_back(name, std::move(set));
}

void Camera::connectTo(const BusCamera& camera)
{
    const ErrorCode result = (*m_object)->connectDeviceBySerial(toQt(camera.serial));
    if (result != ErrorCode::Success) {
        m_driver->close(camera.serial); // for others
    }
    check(result, "connecting to the camera with serial " + camera.serial);
    const std::lock_guard lock(m_mutex);
    m_choice = {camera.serial, camera.port, -1};
    m_facts.nominalPeriod = nominalPeriod(camera.descriptors);
}

/// For drivers that cannot choose.
void Camera::connectEnumerated()
{
    using Kind = Error::Kind;
    if (!m_choice.port.empty()) {
        throw Error(Kind::NoCamera, "NoPorts", "this driver cannot open a camera by its port",
                    "choose it by its serial or its index");
    }
    // Closes what is open, hence not for a second camera.
    const int count = m_driver->openAllOnce();
    if (count < 1) {
        throw noCameraOnBus();
    }
    if (!m_choice.serial.empty()) {
        check((*m_object)->connectDeviceBySerial(toQt(m_choice.serial)),
              "connecting to the camera with serial " + m_choice.serial);
        return;
    }
    const int index = std::max(m_choice.index, 0);
    if (index >= count) {
        throw Error(Kind::NoCamera, "NoSuchIndex",
                    "there is no camera " + std::to_string(index) +
                        "; cameras found: " + std::to_string(count),
                    "indices go from 0 to " + std::to_string(count - 1));
    }
    check((*m_object)->connectDeviceByIndex(index),
          "connecting to camera " + std::to_string(index));
}

/// Reads what a connected camera is and how it is set.
void Camera::learn()
{
    CameraFacts facts;
    facts.serial = toText(property(keys::serial));
    // A driver without this property leaves the default, two images in a frame.
    QVariant sensorCount = facts.sensorCount;
    m_object->readProperty(toQt(keys::sensorCount), sensorCount);
    facts.sensorCount = sensorCount.toInt();
    check((*m_object)->getMaxImageSize(facts.width, facts.height, 0), "reading the image size");
    CameraSpace::PixelFormatType format{};
    (*m_object)->getPixelFormat(format, 0);
    facts.pixelFormat = static_cast<std::uint32_t>(format);
    learnSettings();
    const std::lock_guard lock(m_mutex);
    facts.nominalPeriod = m_facts.nominalPeriod;
    m_facts = facts;
    m_choice.serial = facts.serial;
    m_choice.index = -1;
}

/// What is known anew. What cannot be read is left for the caller to stumble upon.
void Camera::learnSettings()
{
    const auto asked = Clock::now();
    unsigned int exposure = 0;
    unsigned short gain = 0;
    if ((*m_object)->getExposureTime(exposure, 0) == ErrorCode::Success) {
        noteExposure(exposure, asked);
    }
    if ((*m_object)->getGain(gain, 0) == ErrorCode::Success) {
        noteGain(gain, asked);
    }
    readKnown();
}

void Camera::readSettings()
{
    static_cast<void>(exposure());
    static_cast<void>(gain());
    for (const PropertyInfo& info : propertyTable) {
        if (info.writable && isOfCamera(info.key)) {
            tryToRead(info.key); // it may have no such control
        }
    }
}

/// Properties share controls, and one that is set may change others.
void Camera::readKnown()
{
    const std::vector<std::string> known = m_known->keys();
    static_cast<void>(std::ranges::all_of(known, [this](const std::string& key) {
        return !isOfCamera(key) || tryToRead(key); // if not, it answers nothing now
    }));
}

std::shared_ptr<void> Camera::watchSettings(std::function<void(const SettingChange&)> onChange)
{
    return KnownSettings::watch(m_known, std::move(onChange));
}

void Camera::noteExposure(unsigned int exposure, Clock::time_point time)
{
    // Only then: another thread may have set another one since this was asked for.
    m_known->note({"Exposure", std::uint32_t{exposure}, time}, [&] { m_exposure = exposure; });
}

void Camera::noteGain(unsigned short gain, Clock::time_point time)
{
    m_known->note({"Gain", std::uint32_t{gain}, time}, [&] { m_gain = gain; });
}

bool Camera::tryToRead(std::string_view key)
{
    const auto asked = Clock::now();
    QVariant value;
    if (m_object->readProperty(toQt(key), value) != ErrorCode::Success) {
        return false;
    }
    m_known->note({std::string(key), fromVariant(value), asked});
    return true;
}

} // namespace zrn
