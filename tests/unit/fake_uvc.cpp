#include "fake_uvc.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <utility>

// libuvc leaves these types to its implementation.
struct uvc_context {
    int number = 0;
    bool alive = true;
};

struct uvc_device {
    const uvc_context* context = nullptr;
    std::size_t position = 0;
    std::shared_ptr<fakeuvc::Camera> camera;
    std::uint8_t address = 0; ///< when the list was made
    int references = 1;
};

struct uvc_device_handle {
    int number = 0;
    bool alive = true;
    uvc_device* device = nullptr;
    std::optional<fakeuvc::Stream> stream;
    std::mutex callbackMutex; ///< held while a frame is in the callback
    // What uvc_get_format_descs answers.
    std::vector<fakeuvc::Format> described;
    std::deque<uvc_format_desc_t> formats;
    std::deque<uvc_frame_desc_t> frames;
};

namespace fakeuvc
{

namespace
{

std::string requestName(uvc_req_code request)
{
    switch (request) {
    case UVC_GET_CUR:
        return "GET_CUR";
    case UVC_GET_MIN:
        return "GET_MIN";
    case UVC_GET_MAX:
        return "GET_MAX";
    case UVC_GET_DEF:
        return "GET_DEF";
    default:
        return "request " + std::to_string(static_cast<int>(request));
    }
}

/// Builds the linked descriptors of a handle from the camera's script, anew when that has changed.
void describeFormats(uvc_device_handle& handle)
{
    if (handle.described == handle.device->camera->formats) {
        return;
    }
    handle.described = handle.device->camera->formats;
    handle.formats.clear();
    handle.frames.clear();
    for (const Format& format : handle.device->camera->formats) {
        uvc_format_desc_t* previousFormat =
            handle.formats.empty() ? nullptr : &handle.formats.back();
        uvc_format_desc_t& formatDescriptor = handle.formats.emplace_back();
        formatDescriptor.bDescriptorSubtype = format.subtype;
        if (previousFormat) {
            previousFormat->next = &formatDescriptor;
        }
        uvc_frame_desc_t* previousFrame = nullptr;
        for (const FrameSize& frame : format.frames) {
            uvc_frame_desc_t& frameDescriptor = handle.frames.emplace_back();
            frameDescriptor.wWidth = static_cast<std::uint16_t>(frame.width);
            frameDescriptor.wHeight = static_cast<std::uint16_t>(frame.height);
            frameDescriptor.dwDefaultFrameInterval = frame.interval;
            if (previousFrame) {
                previousFrame->next = &frameDescriptor;
            } else {
                formatDescriptor.frame_descs = &frameDescriptor;
            }
            previousFrame = &frameDescriptor;
        }
    }
}

} // namespace

struct Bus::State {
    struct ScriptedFailure {
        Failure failure;
        int matches = 0;
    };

    std::vector<std::shared_ptr<Camera>> cameras;
    std::vector<std::shared_ptr<Camera>> unplugged;
    std::uint8_t lastAddress = 0;
    std::vector<ScriptedFailure> failures;
    std::vector<Call> calls;
    std::vector<std::string> steps;
    std::vector<std::string> misuses;
    std::function<void(const Call&)> hook;
    std::function<void()> afterDelivery;
    std::string guardFault;
    int keptLibraryCount = 0;
    std::shared_ptr<StreamTimes> watch;

    // Deques keep the addresses of their elements.
    std::deque<uvc_context> contexts;
    std::deque<uvc_device> devices;
    std::deque<uvc_device_handle> handles;
    std::map<uvc_device_t**, std::vector<uvc_device_t*>> lists;
    std::set<uvc_device_t**> freeLists;
    std::map<uvc_device_descriptor_t*, std::unique_ptr<uvc_device_descriptor_t>> descriptors;
    std::set<uvc_device_descriptor_t*> freeDescriptors;
};

void Camera::setSerial(std::uint64_t serial)
{
    const auto word = [serial](int index) {
        return static_cast<int>((serial >> (16 * index)) & 0xffff);
    };
    (*this)[Control::BacklightCompensation] = {.current = word(0),
                                               .minimum = word(1),
                                               .maximum = word(2),
                                               .preset = word(3),
                                               .nextReads = {}};
}

std::ostream& operator<<(std::ostream& stream, const Outstanding& outstanding)
{
    return stream << "contexts " << outstanding.contexts << ", handles " << outstanding.handles
                  << ", device references " << outstanding.deviceReferences << ", lists "
                  << outstanding.lists << ", descriptors " << outstanding.descriptors;
}

Bus& Bus::instance()
{
    // Never destroyed: the driver may close its cameras while the process exits.
    static Bus* bus = new Bus;
    return *bus;
}

Bus::Bus()
    : m_state(std::make_unique<State>())
{
}

Bus::~Bus() = default;

void Bus::reset()
{
    const std::lock_guard lock(m_mutex);
    m_state = std::make_unique<State>();
}

Camera& Bus::addCamera(std::uint64_t serial, int sensorType, int width, int height)
{
    Camera& camera = addDevice(zrn::cameraVendorId, zrn::cameraProductId);
    camera.setSerial(serial);
    camera[Control::Contrast].current = sensorType;
    camera[Control::Brightness] = {
        .current = 100, .minimum = 1, .maximum = 5000, .preset = 100, .nextReads = {}};
    camera[Control::Gain] = {
        .current = 20, .minimum = 2, .maximum = 200, .preset = 20, .nextReads = {}};
    camera[Control::Gamma].current = 10;
    camera[Control::Sharpness].current = 20;
    camera[Control::Hue].current = 30;
    camera[Control::Saturation].current = 40;
    camera.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{width, height}}}};
    return camera;
}

Camera& Bus::addDevice(std::uint16_t vendorId, std::uint16_t productId)
{
    const std::lock_guard lock(m_mutex);
    auto camera = std::make_shared<Camera>();
    camera->vendorId = vendorId;
    camera->productId = productId;
    camera->address = ++m_state->lastAddress;
    return *m_state->cameras.emplace_back(std::move(camera));
}

void Bus::unplugAll()
{
    const std::lock_guard lock(m_mutex);
    m_state->cameras.clear();
}

void Bus::unplug(const Camera& camera)
{
    const std::lock_guard lock(m_mutex);
    const auto found =
        std::find_if(m_state->cameras.begin(), m_state->cameras.end(),
                     [&camera](const auto& candidate) { return candidate.get() == &camera; });
    if (found != m_state->cameras.end()) {
        m_state->unplugged.push_back(*found);
        m_state->cameras.erase(found);
    }
}

void Bus::replug(Camera& camera)
{
    unplug(camera);
    const std::lock_guard lock(m_mutex);
    const auto found =
        std::find_if(m_state->unplugged.begin(), m_state->unplugged.end(),
                     [&camera](const auto& candidate) { return candidate.get() == &camera; });
    if (found != m_state->unplugged.end()) {
        camera.address = ++m_state->lastAddress;
        m_state->cameras.push_back(*found);
        m_state->unplugged.erase(found);
    }
}

void Bus::fail(Failure failure)
{
    const std::lock_guard lock(m_mutex);
    m_state->failures.push_back({std::move(failure)});
}

void Bus::clearFailures()
{
    const std::lock_guard lock(m_mutex);
    m_state->failures.clear();
}

std::vector<Call> Bus::calls() const
{
    const std::lock_guard lock(m_mutex);
    return m_state->calls;
}

std::vector<std::string> Bus::callTexts() const
{
    std::vector<std::string> texts;
    for (const Call& call : calls()) {
        texts.push_back(call.text);
    }
    return texts;
}

int Bus::count(const std::string& function) const
{
    const std::vector<Call> made = calls();
    return static_cast<int>(std::count_if(made.begin(), made.end(), [&function](const Call& call) {
        return call.function == function;
    }));
}

std::vector<std::string> Bus::steps() const
{
    const std::lock_guard lock(m_mutex);
    return m_state->steps;
}

void Bus::note(const std::string& step)
{
    const std::lock_guard lock(m_mutex);
    m_state->steps.push_back(step);
}

void Bus::clearCalls()
{
    const std::lock_guard lock(m_mutex);
    m_state->calls.clear();
    m_state->steps.clear();
}

void Bus::setGuardFault(const std::string& fault)
{
    const std::lock_guard lock(m_mutex);
    m_state->guardFault = fault;
}

std::string Bus::guardFault() const
{
    const std::lock_guard lock(m_mutex);
    return m_state->guardFault;
}

void Bus::noteKeptLibrary()
{
    const std::lock_guard lock(m_mutex);
    ++m_state->keptLibraryCount;
}

int Bus::keptLibraryCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_state->keptLibraryCount;
}

void Bus::setWatch(std::shared_ptr<StreamTimes> times)
{
    const std::lock_guard lock(m_mutex);
    m_state->watch = std::move(times);
}

std::shared_ptr<StreamTimes> Bus::watch() const
{
    const std::lock_guard lock(m_mutex);
    return m_state->watch;
}

void Bus::setHook(std::function<void(const Call&)> hook)
{
    const std::lock_guard lock(m_mutex);
    m_state->hook = std::move(hook);
}

void Bus::setAfterDelivery(std::function<void()> action)
{
    const std::lock_guard lock(m_mutex);
    m_state->afterDelivery = std::move(action);
}

Outstanding Bus::outstanding() const
{
    const std::lock_guard lock(m_mutex);
    Outstanding outstanding;
    for (const uvc_context& context : m_state->contexts) {
        outstanding.contexts += context.alive ? 1 : 0;
    }
    for (const uvc_device_handle& handle : m_state->handles) {
        outstanding.handles += handle.alive ? 1 : 0;
    }
    for (const uvc_device& device : m_state->devices) {
        outstanding.deviceReferences += device.references;
    }
    outstanding.lists = static_cast<int>(m_state->lists.size() - m_state->freeLists.size());
    outstanding.descriptors =
        static_cast<int>(m_state->descriptors.size() - m_state->freeDescriptors.size());
    return outstanding;
}

std::vector<std::string> Bus::misuses() const
{
    const std::lock_guard lock(m_mutex);
    return m_state->misuses;
}

std::optional<Stream> Bus::stream(const Camera& camera) const
{
    const std::lock_guard lock(m_mutex);
    for (const uvc_device_handle& handle : m_state->handles) {
        if (handle.alive && handle.stream && handle.device->camera.get() == &camera) {
            return handle.stream;
        }
    }
    return std::nullopt;
}

bool Bus::deliver(const Camera& camera, int width, int height, std::vector<unsigned char>& data,
                  std::uint32_t sequence)
{
    std::unique_lock lock(m_mutex);
    const auto handle = std::find_if(
        m_state->handles.begin(), m_state->handles.end(), [&camera](const auto& candidate) {
            return candidate.alive && candidate.stream && candidate.device->camera.get() == &camera;
        });
    if (handle == m_state->handles.end()) {
        return false;
    }
    const Stream stream = *handle->stream;
    const std::function<void()> afterDelivery = m_state->afterDelivery;
    std::unique_lock callbackLock(handle->callbackMutex);
    lock.unlock();

    uvc_frame_t frame{};
    frame.data = data.data();
    frame.data_bytes = data.size();
    frame.width = static_cast<std::uint32_t>(width);
    frame.height = static_cast<std::uint32_t>(height);
    frame.sequence = sequence;
    stream.callback(&frame, stream.userPointer);
    callbackLock.unlock();
    if (afterDelivery) {
        afterDelivery();
    }
    return true;
}

uvc_error_t Bus::begin(const std::string& function, const std::string& arguments,
                       std::optional<uvc_req_code> request)
{
    Call call{function, function + arguments, UVC_SUCCESS};
    std::function<void(const Call&)> hook;
    {
        const std::lock_guard lock(m_mutex);
        for (State::ScriptedFailure& scripted : m_state->failures) {
            const Failure& failure = scripted.failure;
            if (failure.function != function || (failure.request && failure.request != request)) {
                continue;
            }
            ++scripted.matches;
            if (failure.nth == 0 || failure.nth == scripted.matches) {
                call.result = failure.error;
            }
        }
        m_state->calls.push_back(call);
        m_state->steps.push_back(call.text);
        hook = m_state->hook;
    }
    if (hook) {
        hook(call);
    }
    return call.result;
}

uvc_error_t Bus::init(uvc_context_t** context, const void* usbContext)
{
    if (const uvc_error_t error = begin("uvc_init", usbContext ? " with a USB context" : "")) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    uvc_context& created = m_state->contexts.emplace_back();
    created.number = static_cast<int>(m_state->contexts.size());
    *context = &created;
    return UVC_SUCCESS;
}

void Bus::exit(uvc_context_t* context)
{
    begin("uvc_exit", nameOf(context));
    const std::lock_guard lock(m_mutex);
    if (!context || !context->alive) {
        misuse("uvc_exit on a context that does not live");
        return;
    }
    for (const uvc_device_handle& handle : m_state->handles) {
        if (handle.alive && handle.device->context == context) {
            misuse("uvc_exit while a handle of the context is open");
        }
    }
    context->alive = false;
}

uvc_error_t Bus::deviceList(uvc_context_t* context, uvc_device_t*** list)
{
    if (const uvc_error_t error = begin("uvc_get_device_list", nameOf(context))) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    if (!context || !context->alive) {
        misuse("uvc_get_device_list on a context that does not live");
    }
    std::vector<uvc_device_t*> devices;
    for (std::size_t i = 0; i < m_state->cameras.size(); ++i) {
        uvc_device& device = m_state->devices.emplace_back();
        device.context = context;
        device.position = i;
        device.camera = m_state->cameras[i];
        device.address = device.camera->address;
        devices.push_back(&device);
    }
    devices.push_back(nullptr);
    *list = devices.data();
    m_state->lists.emplace(*list, std::move(devices));
    return UVC_SUCCESS;
}

void Bus::freeDeviceList(uvc_device_t** list, bool unreference)
{
    begin("uvc_free_device_list", unreference ? " with references" : " without references");
    const std::lock_guard lock(m_mutex);
    const auto found = m_state->lists.find(list);
    if (found == m_state->lists.end() || !m_state->freeLists.insert(list).second) {
        misuse("uvc_free_device_list on a list that does not live");
        return;
    }
    if (!unreference) {
        return;
    }
    for (uvc_device_t* device : found->second) {
        if (device) {
            --device->references;
        }
    }
}

uvc_error_t Bus::deviceDescriptor(uvc_device_t* device, uvc_device_descriptor_t** descriptor)
{
    if (const uvc_error_t error = begin("uvc_get_device_descriptor", nameOf(device))) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    if (!device->camera->descriptorReadable) {
        return UVC_ERROR_IO;
    }
    auto created = std::make_unique<uvc_device_descriptor_t>();
    created->idVendor = device->camera->vendorId;
    created->idProduct = device->camera->productId;
    *descriptor = created.get();
    m_state->descriptors.emplace(*descriptor, std::move(created));
    return UVC_SUCCESS;
}

void Bus::freeDeviceDescriptor(uvc_device_descriptor_t* descriptor)
{
    begin("uvc_free_device_descriptor", "");
    const std::lock_guard lock(m_mutex);
    if (!m_state->descriptors.contains(descriptor) ||
        !m_state->freeDescriptors.insert(descriptor).second) {
        misuse("uvc_free_device_descriptor on a descriptor that does not live");
    }
}

void Bus::addReference(uvc_device_t* device, int change)
{
    begin(change > 0 ? "uvc_ref_device" : "uvc_unref_device", nameOf(device));
    const std::lock_guard lock(m_mutex);
    if (device->references <= 0) {
        misuse("a reference changed on a device that does not live");
    }
    device->references += change;
}

std::uint8_t Bus::busNumber(uvc_device_t* device)
{
    begin("uvc_get_bus_number", nameOf(device));
    const std::lock_guard lock(m_mutex);
    if (device->references <= 0) {
        misuse("uvc_get_bus_number of a device that does not live");
    }
    return device->camera->busNumber;
}

std::uint8_t Bus::deviceAddress(uvc_device_t* device)
{
    begin("uvc_get_device_address", nameOf(device));
    const std::lock_guard lock(m_mutex);
    return device->address;
}

uvc_error_t Bus::open(uvc_device_t* device, uvc_device_handle_t** handle)
{
    if (const uvc_error_t error = begin("uvc_open", nameOf(device))) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    if (device->camera->openResult != UVC_SUCCESS) {
        return device->camera->openResult;
    }
    uvc_device_handle& created = m_state->handles.emplace_back();
    created.number = static_cast<int>(m_state->handles.size());
    created.device = device;
    ++device->references;
    *handle = &created;
    return UVC_SUCCESS;
}

void Bus::close(uvc_device_handle_t* handle)
{
    begin("uvc_close", nameOf(handle));
    std::unique_lock lock(m_mutex);
    if (!isOpen(handle)) {
        misuse("uvc_close on a handle that is not open");
        return;
    }
    if (!handle->device->context || !handle->device->context->alive) {
        misuse("uvc_close after its context was released");
    }
    handle->alive = false;
    handle->stream.reset();
    --handle->device->references;
    lock.unlock();
    const std::lock_guard callbackDone(handle->callbackMutex);
}

const uvc_format_desc_t* Bus::formats(uvc_device_handle_t* handle)
{
    if (begin("uvc_get_format_descs", nameOf(handle)) != UVC_SUCCESS) {
        return nullptr;
    }
    const std::lock_guard lock(m_mutex);
    if (!isOpen(handle)) {
        misuse("uvc_get_format_descs on a handle that is not open");
        return nullptr;
    }
    describeFormats(*handle);
    return handle->formats.empty() ? nullptr : &handle->formats.front();
}

uvc_error_t Bus::negotiate(uvc_device_handle_t* handle, uvc_stream_ctrl_t* control, int format,
                           int width, int height, int framesPerSecond)
{
    if (const uvc_error_t error = begin("uvc_get_stream_ctrl_format_size",
                                        nameOf(handle) + " format " + std::to_string(format) + " " +
                                            std::to_string(width) + "x" + std::to_string(height) +
                                            " rate " + std::to_string(framesPerSecond))) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    if (!isOpen(handle) || !control) {
        misuse("uvc_get_stream_ctrl_format_size on a handle that is not open, or without a record");
    }
    return UVC_SUCCESS;
}

uvc_error_t Bus::startStreaming(uvc_device_handle_t* handle, const Stream& stream)
{
    if (const uvc_error_t error = begin("uvc_start_streaming", nameOf(handle) + " flags " +
                                                                   std::to_string(stream.flags))) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    if (!isOpen(handle) || !stream.callback || !stream.control) {
        misuse("uvc_start_streaming on a handle that is not open, or without callback or record");
        return UVC_ERROR_INVALID_PARAM;
    }
    if (handle->stream) {
        return UVC_ERROR_BUSY;
    }
    handle->stream = stream;
    return UVC_SUCCESS;
}

void Bus::stopStreaming(uvc_device_handle_t* handle)
{
    begin("uvc_stop_streaming", nameOf(handle));
    std::unique_lock lock(m_mutex);
    if (!isOpen(handle)) {
        misuse("uvc_stop_streaming on a handle that is not open");
        return;
    }
    handle->stream.reset();
    lock.unlock();
    const std::lock_guard callbackDone(handle->callbackMutex);
}

uvc_error_t Bus::read(uvc_device_handle_t* handle, const std::string& function, Control control,
                      uvc_req_code request, int& value)
{
    if (const uvc_error_t error =
            begin(function, nameOf(handle) + " " + requestName(request), request)) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    if (!isOpen(handle)) {
        misuse(function + " on a handle that is not open");
        return UVC_ERROR_NO_DEVICE;
    }
    ControlValues& values = (*handle->device->camera)[control];
    switch (request) {
    case UVC_GET_MIN:
        value = values.minimum;
        return UVC_SUCCESS;
    case UVC_GET_MAX:
        value = values.maximum;
        return UVC_SUCCESS;
    case UVC_GET_DEF:
        value = values.preset;
        return UVC_SUCCESS;
    default:
        break;
    }
    if (values.nextReads.empty()) {
        value = values.current;
    } else {
        value = values.nextReads.front();
        values.nextReads.pop_front();
    }
    return UVC_SUCCESS;
}

uvc_error_t Bus::write(uvc_device_handle_t* handle, const std::string& function,
                       std::optional<Control> control, int value)
{
    if (const uvc_error_t error = begin(function, nameOf(handle) + " " + std::to_string(value))) {
        return error;
    }
    const std::lock_guard lock(m_mutex);
    if (!isOpen(handle)) {
        misuse(function + " on a handle that is not open");
        return UVC_ERROR_NO_DEVICE;
    }
    if (control) {
        (*handle->device->camera)[*control].current = value;
    }
    return UVC_SUCCESS;
}

void Bus::misuse(const std::string& text)
{
    m_state->misuses.push_back(text);
}

std::string Bus::nameOf(const uvc_context_t* context) const
{
    return context ? " context" + std::to_string(context->number) : " null";
}

std::string Bus::nameOf(const uvc_device_t* device) const
{
    return device ? nameOf(device->context) + "/device" + std::to_string(device->position)
                  : " null";
}

std::string Bus::nameOf(const uvc_device_handle_t* handle) const
{
    return handle ? " handle" + std::to_string(handle->number) : " null";
}

bool Bus::isOpen(const uvc_device_handle_t* handle) const
{
    return handle && handle->alive;
}

} // namespace fakeuvc
