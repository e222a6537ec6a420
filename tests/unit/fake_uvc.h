#pragma once

#include "camera_ids.h"

#include <libuvc/libuvc.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class StreamTimes;

/// A scripted stand-in for libuvc. It defines the functions that the driver may call and no others,
/// so a driver that calls another one does not link.
///
/// A test puts cameras on the bus, says which calls shall fail, runs the driver and reads the log
/// of calls. Objects are never freed before reset(), so that the use of a closed one is noticed.
///
/// Thread safety: every function may be called from any thread. A Camera is plain data, to be
/// changed while the driver is idle or from the hook.
namespace fakeuvc
{

enum class Control : std::size_t {
    BacklightCompensation,
    Brightness,
    Contrast,
    Gain,
    Gamma,
    Hue,
    Saturation,
    Sharpness,
};
inline constexpr std::size_t controlCount = 8;

struct ControlValues {
    int current = 0;
    int minimum = 0;
    int maximum = 0;
    int preset = 0;
    std::deque<int> nextReads; ///< what the next GET_CURs answer, before `current` again
};

struct FrameSize {
    int width;
    int height;
    std::uint32_t interval = 333333;

    friend bool operator==(const FrameSize&, const FrameSize&) = default;
};

struct Format {
    uvc_vs_desc_subtype subtype = UVC_VS_FORMAT_UNCOMPRESSED;
    std::vector<FrameSize> frames;

    friend bool operator==(const Format&, const Format&) = default;
};

/// One device on the bus.
struct Camera {
    std::uint16_t vendorId = zrn::cameraVendorId;
    std::uint16_t productId = zrn::cameraProductId;
    std::uint8_t busNumber = 1;
    std::uint8_t address = 0; ///< on the bus; another one for each device
    bool descriptorReadable = true;
    uvc_error_t openResult = UVC_SUCCESS;
    std::array<ControlValues, controlCount> controls;
    std::vector<Format> formats;

    ControlValues& operator[](Control control)
    {
        return controls[static_cast<std::size_t>(control)];
    }
    void setSerial(std::uint64_t serial);
};

/// One call of a libuvc function.
struct Call {
    std::string function; ///< "uvc_get_gain"
    std::string
        text; ///< the function and its arguments, for example "uvc_get_gain handle1 GET_CUR"
    uvc_error_t result; ///< UVC_SUCCESS for functions without a result
};

/// Which calls shall fail.
struct Failure {
    std::string function;
    uvc_error_t error = UVC_ERROR_IO;
    int nth = 0; ///< counted from 1 and from when the failure was scripted; 0 for every call
    std::optional<uvc_req_code> request = std::nullopt; ///< only calls with this request code
};

/// Objects that were handed out and not given back.
struct Outstanding {
    int contexts = 0;
    int handles = 0;
    int deviceReferences = 0;
    int lists = 0;
    int descriptors = 0;

    friend bool operator==(const Outstanding&, const Outstanding&) = default;
};
std::ostream& operator<<(std::ostream& stream, const Outstanding& outstanding);

/// What the driver gave to uvc_start_streaming.
struct Stream {
    uvc_frame_callback_t* callback = nullptr;
    void* userPointer = nullptr;
    const uvc_stream_ctrl_t* control = nullptr;
    std::uint8_t flags = 0;
};

class Bus
{
public:
    /// The one bus of the process.
    static Bus& instance();

    /// Forgets everything.
    void reset();

    /// Plugs in a camera with one uncompressed format of one frame size.
    Camera& addCamera(std::uint64_t serial, int sensorType = 2, int width = 1280,
                      int height = 1024);
    /// Plugs in a device of another kind.
    Camera& addDevice(std::uint16_t vendorId, std::uint16_t productId);
    /// Unplugs every device; open handles stay usable.
    void unplugAll();
    /// Unplugs one device and plugs it in again, where it gets another address.
    void replug(Camera& camera);
    void unplug(const Camera& camera);

    void fail(Failure failure);
    void clearFailures();

    /// The calls since the last clearCalls(), in order.
    [[nodiscard]] std::vector<Call> calls() const;
    [[nodiscard]] std::vector<std::string> callTexts() const;
    [[nodiscard]] int count(const std::string& function) const;
    /// The texts of the calls, and what a test noted between them.
    [[nodiscard]] std::vector<std::string> steps() const;
    void note(const std::string& step);
    /// Forgets the notes, too.
    void clearCalls();

    /// Runs @p hook at the beginning of each call, without any lock of the stand-in held.
    void setHook(std::function<void(const Call&)> hook);

    /// Runs @p action after each delivered frame.
    void setAfterDelivery(std::function<void()> action);

    /// Says that guards are missing, and why; empty takes it back.
    void setGuardFault(const std::string& fault);
    /// How often the driver asked for its library to stay loaded.
    [[nodiscard]] int keptLibraryCount() const;

    [[nodiscard]] Outstanding outstanding() const;
    /// Calls that libuvc would not survive: on closed or unknown objects, or given back twice.
    [[nodiscard]] std::vector<std::string> misuses() const;

    /// The stream that runs on a camera, if any.
    [[nodiscard]] std::optional<Stream> stream(const Camera& camera) const;
    /// Gives a frame to the stream that runs on a camera, on the calling thread; as with libuvc,
    /// stopping waits for it. @return false when there is no stream.
    bool deliver(const Camera& camera, int width, int height, std::vector<unsigned char>& data,
                 std::uint32_t sequence = 0);
    /// Where the driver wants the frames of the stream started last to be noted.
    [[nodiscard]] std::shared_ptr<StreamTimes> watch() const;

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // For what the camera class asks about its libuvc.
    [[nodiscard]] std::string guardFault() const;
    void noteKeptLibrary();
    void setWatch(std::shared_ptr<StreamTimes> times);

    // For the functions of libuvc.
    uvc_error_t begin(const std::string& function, const std::string& arguments,
                      std::optional<uvc_req_code> request = std::nullopt);
    uvc_error_t init(uvc_context_t** context, const void* usbContext);
    void exit(uvc_context_t* context);
    uvc_error_t deviceList(uvc_context_t* context, uvc_device_t*** list);
    void freeDeviceList(uvc_device_t** list, bool unreference);
    uvc_error_t deviceDescriptor(uvc_device_t* device, uvc_device_descriptor_t** descriptor);
    void freeDeviceDescriptor(uvc_device_descriptor_t* descriptor);
    void addReference(uvc_device_t* device, int change);
    std::uint8_t busNumber(uvc_device_t* device);
    std::uint8_t deviceAddress(uvc_device_t* device);
    uvc_error_t open(uvc_device_t* device, uvc_device_handle_t** handle);
    void close(uvc_device_handle_t* handle);
    const uvc_format_desc_t* formats(uvc_device_handle_t* handle);
    uvc_error_t negotiate(uvc_device_handle_t* handle, uvc_stream_ctrl_t* control, int format,
                          int width, int height, int framesPerSecond);
    uvc_error_t startStreaming(uvc_device_handle_t* handle, const Stream& stream);
    void stopStreaming(uvc_device_handle_t* handle);
    uvc_error_t read(uvc_device_handle_t* handle, const std::string& function, Control control,
                     uvc_req_code request, int& value);
    uvc_error_t write(uvc_device_handle_t* handle, const std::string& function,
                      std::optional<Control> control, int value);

private:
    struct State;

    Bus();
    ~Bus();

    void misuse(const std::string& text);
    [[nodiscard]] std::string nameOf(const uvc_context_t* context) const;
    [[nodiscard]] std::string nameOf(const uvc_device_t* device) const;
    [[nodiscard]] std::string nameOf(const uvc_device_handle_t* handle) const;
    [[nodiscard]] bool isOpen(const uvc_device_handle_t* handle) const;

    mutable std::mutex m_mutex; ///< guards m_state
    std::unique_ptr<State> m_state;
};

} // namespace fakeuvc
