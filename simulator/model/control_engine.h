#pragma once

#include "model/camera_config.h"
#include "model/control_fault.h"
#include "model/descriptors.h"
#include "model/negotiation.h"

#include <cstdint>
#include <utility>

namespace zrnsim
{

/// What a control request meant for the video stream.
enum class StreamEvent : std::uint8_t { None, Start, Stop };

struct ControlResult {
    ControlStatus status = ControlStatus::Done;
    Bytes data; ///< of a device-to-host request, not longer than wLength
    StreamEvent stream = StreamEvent::None;
    bool isStateReset = false;
};

/// The device's side of the default control pipe: standard requests, UVC control and streaming
/// requests. Not synchronised.
class ControlEngine
{
public:
    explicit ControlEngine(const CameraConfig& config);

    /// Answers one request. `out` is the data stage of a host-to-device request.
    ControlResult handle(const SetupPacket& setup, ByteView out);

    /// Back to the state after power-up.
    void powerUp(const CameraConfig& config);

    /// Reports this configuration descriptor, whatever the device really is, instead of its own.
    /// Empty: its own. Takes effect at the next power-up.
    void setConfigurationDescriptor(Bytes descriptor) { m_reported = std::move(descriptor); }

    /// Makes the streaming endpoint answer with a stall until the host clears it.
    void haltEndpoint() { m_halted = true; }
    bool isHalted() const { return m_halted; }

    const DescriptorSet& descriptors() const { return m_descriptors; }
    const ControlSet& controls() const { return m_controls; }
    ControlSet& controls() { return m_controls; }
    const StreamParameters& committed() const { return m_commit; }
    std::uint8_t alternateSetting() const { return m_alternate; }

private:
    ControlResult handleStandard(const SetupPacket& setup);
    ControlResult handleClass(const SetupPacket& setup, ByteView out);
    ControlResult handleUnit(const SetupPacket& setup, ByteView out);
    ControlResult handleStreaming(const SetupPacket& setup, ByteView out);
    ControlResult getDescriptor(const SetupPacket& setup) const;
    ControlResult getStatus(const SetupPacket& setup) const;
    ControlResult changeFeature(const SetupPacket& setup);
    ControlResult setInterface(const SetupPacket& setup);
    ControlResult setConfiguration(const SetupPacket& setup);
    ControlResult refuse(uvc::RequestError reason);

    CameraConfig m_config;
    DescriptorSet m_descriptors;
    Bytes m_reported;
    ControlSet m_controls;
    StreamParameters m_probe;
    StreamParameters m_commit;
    uvc::RequestError m_error = uvc::RequestError::None;
    std::uint8_t m_configuration = topology::configuration;
    std::uint8_t m_alternate = 0;
    bool m_halted = false;
};

} // namespace zrnsim
