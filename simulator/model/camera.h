#pragma once

#include "model/control_engine.h"
#include "model/frame_producer.h"
#include "model/journal.h"
#include "model/payload_slicer.h"
#include "model/usb_device.h"

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <type_traits>
#include <vector>

namespace zrnsim
{

/// One virtual camera: all of its behaviour, and no word of how its transfers travel.
///
/// A transport forwards control transfers to control(), fetches stream data with nextPiece() and
/// registers a wake handler; attach() and detach() tell of the cable. Everything is thread-safe;
/// one thread at a time fetches stream data.
///
/// Lock order: m_mutex may be held while the producer's functions are called, never the other way
/// round; the wake handler is called without m_mutex.
class Camera final : public UsbDevice
{
public:
    Camera(CameraConfig config, RenderFrame render);

    // The transport's side.

    ControlReply control(const SetupPacket& setup, ByteView out) override;

    /// Stream data for at most `maxLength` bytes of one transfer or packet; nothing yet: nullopt.
    std::optional<PayloadPiece> nextPiece(std::size_t maxLength);

    /// The fault that the next transfer of the streaming endpoint has to end with, if any.
    std::optional<TransferFault> takeTransferFault();

    /// Whether the next transfer of the streaming endpoint has to be refused for want of memory.
    /// A transport asks that sees transfers being submitted.
    bool takeSubmissionRefusal();

    /// Counts a finished transfer of the streaming endpoint.
    void noteTransfer()
    {
        locked([&] { ++m_counters.transfersCompleted; });
    }

    /// Notes that the host has got the transfer in which a frame began. @param startedFrame as
    /// the piece told
    void noteTaken(std::uint64_t startedFrame);

    bool isEndpointHalted() const
    {
        return locked([&] { return m_engine.isHalted(); });
    }

    /// Counts a transfer that the halted streaming endpoint has refused.
    void noteStall()
    {
        locked([&] { ++m_counters.transfersFailed; });
    }

    void setWakeHandler(std::function<void()> handler) override;
    void attach(std::optional<std::uint64_t> serial) override;
    /// The stream ends.
    void detach() override;

    DescriptorSet descriptors() const override
    {
        return locked([&] { return m_engine.descriptors(); });
    }
    UsbSpeed speed() const override
    {
        return locked([&] { return m_config.speed; });
    }
    CameraConfig config() const
    {
        return locked([&] { return m_config; });
    }
    std::uint8_t alternateSetting() const
    {
        return locked([&] { return m_engine.alternateSetting(); });
    }

    // The side of tests and scripts.

    ControlSet controls() const
    {
        return locked([&] { return m_engine.controls(); });
    }
    StreamParameters streamParameters() const
    {
        return locked([&] { return m_engine.committed(); });
    }
    bool isStreaming() const
    {
        return locked([&] { return m_streaming; });
    }
    Counters counters() const
    {
        return locked([&] { return m_counters; });
    }
    std::vector<TraceEntry> trace(std::uint64_t since) const
    {
        return locked([&] { return m_trace.since(since); });
    }
    std::vector<SentFrame> sentFrames(std::uint64_t since) const
    {
        return locked([&] { return m_sentFrames.since(since); });
    }

    /// Sets a control's values as if the firmware had changed them.
    void setControl(ControlId id, const ControlValues& values)
    {
        locked([&] { m_engine.controls()[id] = values; });
    }

    /// Takes `count` frames at once. False when the stream is not running.
    bool emitFrames(unsigned count);

    /// Number of the next frame.
    void setFrameNumber(std::uint32_t number)
    {
        locked([&] { m_frameNumber = number; });
    }

    void addControlFault(const ControlFault& fault)
    {
        locked([&] { m_controlFaults.push_back(fault); });
    }
    void setFrameFault(const FrameFault& fault)
    {
        locked([&] { m_frameFault = fault; });
    }
    void addTransferFaults(TransferFault fault, unsigned count);
    void refuseSubmissions(unsigned count)
    {
        locked([&] { m_refusals += count; });
    }
    void haltEndpoint();

    /// Reports this configuration descriptor from the next plugging in on. Empty: the true one.
    void setConfigurationDescriptor(const Bytes& descriptor)
    {
        locked([&] { m_engine.setConfigurationDescriptor(descriptor); });
    }

    /// While frozen the camera produces no frame and sends no payload.
    void setFrozen(bool frozen);

    /// Ends every fault but an unplug.
    void clearFaults();

private:
    template <typename Access>
    std::invoke_result_t<Access> locked(Access access) const
    {
        const std::lock_guard lock(m_mutex);
        return access();
    }

    bool beginFrame(Frame& frame, bool isEmitted);
    void deliver(FramePtr frame);
    void startStream();
    void stopStream();
    void applyStreamEvent(StreamEvent event);
    PictureControls pictureControls() const;
    std::optional<ControlFault> takeControlFault(const SetupPacket& setup, const RequestName& name);
    ControlReply answer(const SetupPacket& setup, ByteView out, const RequestName& name);
    void record(const SetupPacket& setup, ByteView out, const RequestName& name,
                const ControlReply& reply);
    void wake() const;

    mutable std::mutex m_mutex;
    CameraConfig m_config;
    ControlEngine m_engine;
    PayloadSlicer m_slicer;
    std::deque<FramePtr> m_queue;
    std::vector<ControlFault> m_controlFaults;
    FrameFault m_frameFault;
    std::deque<TransferFault> m_transferFaults;
    unsigned m_refusals = 0; ///< of submissions, still to come
    bool m_frozen = false;
    bool m_streaming = false;
    std::uint32_t m_frameNumber = 0;
    Counters m_counters;
    Log<TraceEntry> m_trace;
    Log<SentFrame> m_sentFrames;
    mutable std::mutex m_wakeMutex; ///< guards and is held across the handler
    std::function<void()> m_wake;

    FrameProducer m_producer; // the last member: its thread uses all others
};

} // namespace zrnsim
