#include "model/camera.h"

#include "pictures/sensor_types.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace zrnsim
{

namespace
{

constexpr std::size_t keptTrace = 65'536;
constexpr std::size_t keptFrames = 65'536;

/// Frames that wait behind the one under way before a free-running sensor drops.
constexpr std::size_t queuedFrames = 1;

double fraction(const ControlValues& values)
{
    const double span = static_cast<double>(values.max) - values.min;
    return span <= 0 ? 0.5 : (static_cast<double>(values.cur) - values.min) / span;
}

} // namespace

Camera::Camera(CameraConfig config, RenderFrame render)
    : m_config(std::move(config))
    , m_engine(m_config)
    , m_trace(keptTrace)
    , m_sentFrames(keptFrames)
    , m_producer(std::move(render),
                 {[this](Frame& frame, bool isEmitted) { return beginFrame(frame, isEmitted); },
                  [this](FramePtr frame) { deliver(std::move(frame)); },
                  [this] {
                      const std::lock_guard lock(m_mutex);
                      ++m_counters.framesUnrendered;
                  }})
{
}

ControlReply Camera::control(const SetupPacket& setup, ByteView out)
{
    const RequestName name = nameOf(setup);
    ControlReply reply;
    {
        const std::lock_guard lock(m_mutex);
        reply = answer(setup, out, name);
        record(setup, out, name, reply);
    }
    wake();
    return reply;
}

ControlReply Camera::answer(const SetupPacket& setup, ByteView out, const RequestName& name)
{
    using Action = ControlFault::Action;
    const auto fault = takeControlFault(setup, name);
    if (fault) {
        switch (fault->action) {
        case Action::Stall:
            return {ControlStatus::Stalled, {}, {}};
        case Action::Fail:
            return {ControlStatus::Failed, {}, {}};
        case Action::Ignore:
            return {ControlStatus::Unanswered, {}, {}};
        case Action::Forget:
            return {};
        case Action::Delay:
        case Action::Resize:
        case Action::Value:
            break;
        }
    }
    ControlResult result = m_engine.handle(setup, out);
    applyStreamEvent(result.stream);
    m_counters.resets += result.isStateReset ? 1U : 0U;
    ControlReply reply{result.status, std::move(result.data), {}};
    if (!fault) {
        return reply;
    }
    reply.delay = fault->delay;
    if (fault->action == Action::Resize) {
        reply.data.resize(std::min<std::size_t>(fault->length, setup.length));
    } else if (fault->action == Action::Value) {
        const std::size_t length = reply.data.size();
        reply.data.clear();
        ByteWriter(reply.data).u32(fault->value);
        reply.data.resize(length);
    }
    return reply;
}

std::optional<ControlFault> Camera::takeControlFault(const SetupPacket& setup,
                                                     const RequestName& name)
{
    for (auto fault = m_controlFaults.begin(); fault != m_controlFaults.end(); ++fault) {
        if (!fault->matches(setup, name)) {
            continue;
        }
        ++m_counters.controlFaults;
        const ControlFault taken = *fault;
        if (fault->requests > 0 && --fault->requests == 0) {
            m_controlFaults.erase(fault);
        }
        return taken;
    }
    return std::nullopt;
}

void Camera::record(const SetupPacket& setup, ByteView out, const RequestName& name,
                    const ControlReply& reply)
{
    ++m_counters.controlRequests;
    m_counters.controlStalls += reply.status == ControlStatus::Stalled ? 1U : 0U;
    ++m_counters.requests[name.request + " " + name.target];
    TraceEntry entry;
    entry.time = Clock::now();
    entry.setup = setup;
    entry.name = name;
    entry.status = reply.status;
    entry.data = setup.isDeviceToHost() ? reply.data : Bytes(out.begin(), out.end());
    m_trace.append(std::move(entry));
}

void Camera::applyStreamEvent(StreamEvent event)
{
    if (event == StreamEvent::Start) {
        startStream();
    } else if (event == StreamEvent::Stop) {
        stopStream();
    }
}

void Camera::startStream()
{
    stopStream();
    const StreamParameters& parameters = m_engine.committed();
    const bool isBulk = m_config.pipe == StreamPipe::Bulk;
    const std::uint32_t capacity = endpointCapacity(m_config, m_engine.alternateSetting());
    m_slicer.configure(isBulk ? parameters.maxPayloadTransferSize
                              : std::min(parameters.maxPayloadTransferSize, capacity),
                       isBulk ? capacity : 0);
    m_streaming = true;
    ++m_counters.streamStarts;
    const double rate = m_config.productionRate.value_or(10'000'000.0 / parameters.frameInterval);
    m_producer.start(rate == 0 ? std::nullopt
                               : std::optional(std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(1.0 / rate))));
}

void Camera::stopStream()
{
    m_producer.stop();
    if (!m_streaming) {
        return;
    }
    m_streaming = false;
    ++m_counters.streamStops;
    m_counters.framesCut += m_slicer.hasFrame() ? 1U : 0U;
    m_slicer.clear();
    m_queue.clear();
}

bool Camera::beginFrame(Frame& frame, bool isEmitted)
{
    const std::lock_guard lock(m_mutex);
    if (!m_streaming || m_frozen) {
        return false;
    }
    ++m_counters.framesProduced;
    const std::uint32_t number = m_frameNumber++;
    if (!isEmitted && m_queue.size() >= queuedFrames) {
        ++m_counters.framesOverrun;
        return false;
    }
    const StreamParameters& parameters = m_engine.committed();
    const FrameSize size = sizeOf(m_config, parameters);
    frame.request.sensorType = receivedSensorType(m_config.sensorType);
    frame.request.width = size.width;
    frame.request.height = size.height;
    frame.request.bytesPerPosition = bytesPerPosition(packingOf(m_config, parameters));
    frame.request.frameNumber = number;
    frame.request.controls = pictureControls();
    frame.captured = Clock::now();
    frame.stream = m_counters.streamStarts;
    frame.fault = {};
    if (m_frameFault.frames != 0) {
        frame.fault = m_frameFault;
        m_frameFault.frames -= m_frameFault.frames > 0 ? 1 : 0;
    }
    return true;
}

PictureControls Camera::pictureControls() const
{
    constexpr ControlId colours[]{ControlId::Gamma, ControlId::Sharpness, ControlId::Hue,
                                  ControlId::Saturation};
    const ControlSet& controls = m_engine.controls();
    PictureControls result;
    result.exposureFraction = fraction(controls[ControlId::Brightness]);
    result.gainFraction = fraction(controls[ControlId::Gain]);
    for (std::size_t i = 0; i < std::size(colours); ++i) {
        result.colorGain[i] = static_cast<std::uint8_t>(controls[colours[i]].cur & 0xff);
    }
    return result;
}

void Camera::deliver(FramePtr frame)
{
    {
        const std::lock_guard lock(m_mutex);
        if (!m_streaming || frame->stream != m_counters.streamStarts) {
            return;
        }
        m_queue.push_back(std::move(frame));
    }
    wake();
}

std::optional<PayloadPiece> Camera::nextPiece(std::size_t maxLength)
{
    const std::lock_guard lock(m_mutex);
    if (!m_streaming || m_frozen) {
        return std::nullopt;
    }
    std::optional<std::uint64_t> startedFrame;
    if (m_slicer.isIdle() && !m_queue.empty()) {
        const FramePtr frame = std::move(m_queue.front());
        m_queue.pop_front();
        ++m_counters.framesStarted;
        startedFrame = m_sentFrames.next();
        m_sentFrames.append({0, Clock::now(), frame->request, frame->bytes.size(), frame->fault,
                             false, std::nullopt});
        m_slicer.load(frame);
        m_producer.startClock();
    }
    auto piece = m_slicer.next(maxLength);
    if (!piece) {
        return std::nullopt;
    }
    piece->startedFrame = startedFrame;
    m_counters.bytesSent += piece->size();
    if (piece->startsPayload) {
        m_counters.payloadsWithError += (piece->headerStorage[1] & uvc::headerError) != 0 ? 1U : 0U;
    }
    m_counters.payloadsSent += piece->endsPayload ? 1U : 0U;
    if (piece->endsFrame) {
        ++m_counters.framesSent;
        m_counters.payloadsLost += piece->payloadsLost;
        m_sentFrames.last().complete = true;
    }
    return piece;
}

std::optional<TransferFault> Camera::takeTransferFault()
{
    const std::lock_guard lock(m_mutex);
    if (m_transferFaults.empty()) {
        return std::nullopt;
    }
    const TransferFault fault = m_transferFaults.front();
    m_transferFaults.pop_front();
    ++m_counters.transfersFailed;
    return fault;
}

bool Camera::takeSubmissionRefusal()
{
    const std::lock_guard lock(m_mutex);
    if (m_refusals == 0) {
        return false;
    }
    --m_refusals;
    ++m_counters.transfersFailed;
    return true;
}

void Camera::noteTaken(std::uint64_t startedFrame)
{
    const std::lock_guard lock(m_mutex);
    if (SentFrame* const frame = m_sentFrames.find(startedFrame)) {
        frame->taken = Clock::now();
    }
}

void Camera::attach(std::optional<std::uint64_t> serial)
{
    const std::lock_guard lock(m_mutex);
    if (serial) {
        m_config.serial = *serial;
        m_config.controls.setSerial(*serial);
    }
    stopStream();
    m_engine.powerUp(m_config);
}

void Camera::detach()
{
    const std::lock_guard lock(m_mutex);
    stopStream();
}

bool Camera::emitFrames(unsigned count)
{
    const std::lock_guard lock(m_mutex);
    if (!m_streaming) {
        return false;
    }
    for (unsigned i = 0; i < count; ++i) {
        m_producer.emit();
    }
    return true;
}

void Camera::addTransferFaults(TransferFault fault, unsigned count)
{
    {
        const std::lock_guard lock(m_mutex);
        m_transferFaults.insert(m_transferFaults.end(), count, fault);
    }
    wake();
}

void Camera::haltEndpoint()
{
    {
        const std::lock_guard lock(m_mutex);
        m_engine.haltEndpoint();
    }
    wake();
}

void Camera::setFrozen(bool frozen)
{
    {
        const std::lock_guard lock(m_mutex);
        m_frozen = frozen;
    }
    wake();
}

void Camera::clearFaults()
{
    {
        const std::lock_guard lock(m_mutex);
        m_engine.setConfigurationDescriptor({});
        m_controlFaults.clear();
        m_frameFault = {};
        m_transferFaults.clear();
        m_refusals = 0;
        m_frozen = false;
    }
    wake();
}

void Camera::setWakeHandler(std::function<void()> handler)
{
    const std::lock_guard lock(m_wakeMutex);
    m_wake = std::move(handler);
}

void Camera::wake() const
{
    const std::lock_guard lock(m_wakeMutex);
    if (m_wake) {
        m_wake();
    }
}

} // namespace zrnsim
