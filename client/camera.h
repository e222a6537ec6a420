#pragma once

#include "client/camera_search.h"
#include "client/value.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zrn
{

class CameraObject;
class KnownSettings;

template <typename Number>
struct Range {
    Number minimum{};
    Number maximum{};
};

/// What does not change while a camera is connected.
struct CameraFacts {
    std::string serial;            ///< as the driver gives it, with its prefix
    std::uint32_t width = 0;       ///< of each image
    std::uint32_t height = 0;      ///< of each image
    std::uint32_t pixelFormat = 0; ///< code of the host contract
    int sensorCount = 2;           ///< value of the SensorCount property
    /// From one frame to the next, as the descriptors name it for the start of a stream; 0: they do
    /// not, or the driver does not tell which camera it opened. A long exposure makes it longer.
    std::chrono::nanoseconds nominalPeriod{};
};

/// What the camera answers when it is asked whether it is there.
struct CameraStatus {
    bool isOnline = false;
    double frameRate = 0; ///< frames per second, as the driver measures
};

/// Which cached frame a grab takes.
enum class FrameOrder { Oldest, Newest };

/// What a setting is from some time on.
struct SettingChange {
    std::string key; ///< of a property, or "Exposure" in microseconds, "Gain", "FrameOrder"
    Value value;
    std::chrono::steady_clock::time_point time;
};

/// A connected camera, and what was set on it, to be set again when it is opened anew. It is
/// disconnected when its last owner lets go; its stream is one of them.
///
/// Errors: operations throw Error with the driver's answer.
/// Thread safety: thread-safe.
class Camera
{
public:
    /// Finds, opens and connects a camera. Blocks for at most the patience and what the driver
    /// takes to connect. @throws Error
    static std::shared_ptr<Camera> open(std::shared_ptr<Driver> driver, CameraChoice choice = {},
                                        const SearchPatience& patience = {});
    /// The same with the driver that is found.
    static std::shared_ptr<Camera> open(CameraChoice choice = {});
    /// Connects a camera that Driver::open() has opened. @param camera with its serial
    /// @throws Error
    static std::shared_ptr<Camera> connect(std::shared_ptr<Driver> driver, const BusCamera& camera);

    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    [[nodiscard]] Driver& driver() const { return *m_driver; }
    [[nodiscard]] CameraFacts facts() const;
    /// Port that it was opened at; empty where the driver can only open all.
    [[nodiscard]] std::string port() const;

    [[nodiscard]] std::chrono::microseconds exposure();
    [[nodiscard]] Range<std::chrono::microseconds> exposureRange();
    void setExposure(std::chrono::microseconds exposure);

    [[nodiscard]] std::uint32_t gain();
    [[nodiscard]] Range<std::uint32_t> gainRange();
    void setGain(std::uint32_t gain);

    [[nodiscard]] FrameOrder order();
    void setOrder(FrameOrder order);

    /// Every property that the driver knows, with types, ranges and units.
    static std::span<const PropertyInfo> properties() { return propertyTable; }
    [[nodiscard]] Value property(std::string_view key);
    /// The driver judges the value by its type.
    void setProperty(std::string_view key, const Value& value);
    /// Runs a command. ClearState resets the camera, and what was set is forgotten.
    void run(std::string_view command);
    [[nodiscard]] CameraStatus status();
    /// Drops the frames that the driver keeps; waits for those that arrive meanwhile.
    void discardFrames();

    /// Exposure and gain as they were last read or set, without asking the camera.
    [[nodiscard]] std::chrono::microseconds knownExposure() const
    {
        return std::chrono::microseconds(m_exposure.load());
    }
    [[nodiscard]] std::uint32_t knownGain() const { return m_gain.load(); }

    /// Reads what the camera keeps of its settings, so that they are known. @throws Error when
    /// exposure or gain cannot be read
    void readSettings();
    /// Tells of each setting that was set or read here, and from then on of every one that turns
    /// out to have changed: when it is set or read, with another one that shares its control, or
    /// after an outage.
    /// @param onChange called on the thread that sets or reads, one call at a time; must not use
    /// the camera
    /// @return ends it, and waits for a call that runs; may outlive the camera
    [[nodiscard]] std::shared_ptr<void>
    watchSettings(std::function<void(const SettingChange&)> onChange);

    /// Gives the camera back, for others, until reopen(). A stream that is kept alive would take it
    /// again.
    void close();
    /// Closes the camera and opens it anew, wherever on the bus it is now, by serial and port, and
    /// sets again what was set. Its stream has to be started again. One try. @throws Error
    void reopen();
    /// Sets again what was set, in the order in which it was. @throws Error
    void restoreSettings();

    /// The camera as the host contract has it, for a host that goes beyond this library.
    [[nodiscard]] CameraObject& object() const { return *m_object; }

private:
    friend class Stream;

    Camera(std::shared_ptr<Driver> driver, CameraChoice choice);

    void find(const SearchPatience& patience);
    void connectEnumerated();
    void connectTo(const BusCamera& camera);
    void learn();
    void learnSettings();
    void remember(std::string_view name, std::function<void()> set);
    void noteExposure(unsigned int exposure, std::chrono::steady_clock::time_point time);
    void noteGain(unsigned short gain, std::chrono::steady_clock::time_point time);
    bool tryToRead(std::string_view key);
    void readKnown();
    void writeExposure(std::chrono::microseconds exposure);
    void writeGain(std::uint32_t gain);
    void writeOrder(FrameOrder order);
    void writeProperty(const std::string& key, const Value& value);

    const std::shared_ptr<Driver> m_driver;
    CameraSearch m_search; ///< goes on from one reopening to the next
    const std::unique_ptr<CameraObject> m_object;
    const std::shared_ptr<KnownSettings> m_known; // and those who watch them
    std::atomic<std::uint32_t> m_exposure = 0;    // microseconds
    std::atomic<std::uint32_t> m_gain = 0;

    mutable std::mutex m_mutex; // guards what follows; not held while the camera is asked
    CameraChoice m_choice;
    CameraFacts m_facts;
    std::atomic<bool> m_hasStream = false;
    std::mutex m_openingMutex; // one reopening at a time

    using Setting = std::pair<std::string, std::function<void()>>;
    std::mutex m_settingMutex; // held over writing and remembering; after m_openingMutex
    /// The last setting of each name. In this order each overwrites what it shares a control with.
    std::vector<Setting> m_settings; // guarded by m_settingMutex
};

} // namespace zrn
