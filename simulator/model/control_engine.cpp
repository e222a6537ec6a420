#include "model/control_engine.h"

#include <optional>
#include <utility>

namespace zrnsim
{

namespace
{

ControlResult done(Bytes data = {}, StreamEvent stream = StreamEvent::None)
{
    return {ControlStatus::Done, std::move(data), stream, false};
}

ControlResult stall()
{
    return {ControlStatus::Stalled, {}, StreamEvent::None, false};
}

Bytes oneByte(std::uint32_t value)
{
    return {static_cast<std::uint8_t>(value)};
}

bool isStreamingEndpoint(const SetupPacket& setup)
{
    return setup.recipient() == usb::recipientEndpoint &&
           setup.indexLow() == topology::streamingEndpoint;
}

} // namespace

ControlEngine::ControlEngine(const CameraConfig& config)
{
    powerUp(config);
}

void ControlEngine::powerUp(const CameraConfig& config)
{
    m_config = config;
    m_descriptors = buildDescriptors(config);
    if (!m_reported.empty()) {
        m_descriptors.configuration = m_reported;
    }
    m_controls = config.controls;
    m_probe = negotiate(config, {});
    m_commit = m_probe;
    m_error = uvc::RequestError::None;
    m_configuration = topology::configuration;
    m_alternate = 0;
    m_halted = false;
}

ControlResult ControlEngine::handle(const SetupPacket& setup, ByteView out)
{
    ControlResult result = stall();
    if (setup.type() == usb::typeStandard) {
        result = handleStandard(setup);
    } else if (setup.type() == usb::typeClass) {
        result = handleClass(setup, out);
    }
    if (result.data.size() > setup.length) {
        result.data.resize(setup.length);
    }
    return result;
}

ControlResult ControlEngine::handleStandard(const SetupPacket& setup)
{
    switch (setup.request) {
    case usb::getStatus:
        return getStatus(setup);
    case usb::clearFeature:
    case usb::setFeature:
        return changeFeature(setup);
    case usb::getDescriptor:
        return getDescriptor(setup);
    case usb::getConfiguration:
        return done(oneByte(m_configuration));
    case usb::setConfiguration:
        return setConfiguration(setup);
    case usb::getInterface:
        return setup.index <= topology::streamingInterface
                   ? done(oneByte(setup.index == topology::streamingInterface ? m_alternate : 0))
                   : stall();
    case usb::setInterface:
        return setInterface(setup);
    case usb::setSel:
    case usb::setIsochronousDelay:
        return m_config.speed == UsbSpeed::Super ? done() : stall();
    default:
        return stall();
    }
}

ControlResult ControlEngine::getDescriptor(const SetupPacket& setup) const
{
    const auto nonEmpty = [](const Bytes& data) { return data.empty() ? stall() : done(data); };
    switch (setup.valueHigh()) {
    case usb::descriptorDevice:
        return done(m_descriptors.device);
    case usb::descriptorConfiguration:
        return setup.valueLow() == 0 ? done(m_descriptors.configuration) : stall();
    case usb::descriptorString:
        return nonEmpty(stringDescriptor(m_descriptors.strings, setup.valueLow()));
    case usb::descriptorDeviceQualifier:
        return nonEmpty(m_descriptors.qualifier);
    case usb::descriptorBos:
        return nonEmpty(m_descriptors.bos);
    default:
        return stall();
    }
}

ControlResult ControlEngine::getStatus(const SetupPacket& setup) const
{
    if (setup.recipient() == usb::recipientEndpoint) {
        return done({static_cast<std::uint8_t>(isStreamingEndpoint(setup) && m_halted), 0});
    }
    return done({0, 0}); // bus powered, no remote wake-up
}

ControlResult ControlEngine::changeFeature(const SetupPacket& setup)
{
    const bool isSet = setup.request == usb::setFeature;
    if (isStreamingEndpoint(setup) && setup.value == usb::featureEndpointHalt) {
        m_halted = isSet;
        // This is how hosts tell a bulk camera that they stop.
        const bool stops = !isSet && m_config.pipe == StreamPipe::Bulk;
        return done({}, stops ? StreamEvent::Stop : StreamEvent::None);
    }
    const bool isLinkPower =
        setup.value == usb::featureU1Enable || setup.value == usb::featureU2Enable;
    const bool isInterfaceSuspend =
        setup.recipient() == usb::recipientInterface && setup.value == 0;
    return m_config.speed == UsbSpeed::Super && (isLinkPower || isInterfaceSuspend) ? done()
                                                                                    : stall();
}

ControlResult ControlEngine::setInterface(const SetupPacket& setup)
{
    if (setup.index == topology::controlInterface) {
        return setup.value == 0 ? done() : stall();
    }
    if (setup.index != topology::streamingInterface || setup.value >= alternateSettings(m_config)) {
        return stall();
    }
    m_alternate = setup.valueLow();
    m_halted = false;
    return done({}, m_alternate == 0 ? StreamEvent::Stop : StreamEvent::Start);
}

ControlResult ControlEngine::setConfiguration(const SetupPacket& setup)
{
    if (setup.value > topology::configuration) {
        return stall();
    }
    m_configuration = setup.valueLow();
    m_alternate = 0;
    m_halted = false;
    return done({}, StreamEvent::Stop);
}

ControlResult ControlEngine::handleClass(const SetupPacket& setup, ByteView out)
{
    if (setup.recipient() != usb::recipientInterface) {
        return stall();
    }
    if (setup.isDeviceToHost() == (setup.request == uvc::setCur)) {
        return refuse(uvc::RequestError::InvalidRequest);
    }
    switch (setup.indexLow()) {
    case topology::controlInterface:
        return handleUnit(setup, out);
    case topology::streamingInterface:
        return handleStreaming(setup, out);
    default:
        return stall();
    }
}

ControlResult ControlEngine::handleUnit(const SetupPacket& setup, ByteView out)
{
    const std::uint8_t entity = setup.indexHigh();
    if (entity == 0) {
        // Reading the reason of the last refusal is no new reason.
        const bool isErrorCode = setup.valueHigh() == uvc::vcRequestErrorCode;
        if (isErrorCode && setup.request == uvc::getCur) {
            return done(oneByte(static_cast<std::uint8_t>(m_error)));
        }
        if (isErrorCode && setup.request == uvc::getInfo) {
            return done(oneByte(uvc::infoGet));
        }
        return refuse(isErrorCode ? uvc::RequestError::InvalidRequest
                                  : uvc::RequestError::InvalidControl);
    }
    if (entity > topology::outputTerminal) {
        return refuse(uvc::RequestError::InvalidUnit);
    }
    const ControlTraits* const traits = findControl(entity, setup.valueHigh());
    if (traits == nullptr) {
        return refuse(uvc::RequestError::InvalidControl);
    }
    if (setup.request == uvc::setCur) {
        const uvc::RequestError error = m_controls.set(*traits, out);
        if (error != uvc::RequestError::None) {
            return refuse(error);
        }
        m_error = uvc::RequestError::None;
        ControlResult result = done();
        result.isStateReset = traits->id == ControlId::Contrast;
        return result;
    }
    std::optional<Bytes> answer = m_controls.get(*traits, setup.request);
    if (!answer) {
        return refuse(uvc::RequestError::InvalidRequest);
    }
    m_error = uvc::RequestError::None;
    return done(std::move(*answer));
}

ControlResult ControlEngine::handleStreaming(const SetupPacket& setup, ByteView out)
{
    const std::uint8_t selector = setup.valueHigh();
    if (selector == uvc::vsStreamErrorCode) {
        return setup.request == uvc::getCur    ? done(oneByte(0))
               : setup.request == uvc::getInfo ? done(oneByte(uvc::infoGet))
                                               : stall();
    }
    if (selector != uvc::vsProbe && selector != uvc::vsCommit) {
        return stall();
    }
    const bool isProbe = selector == uvc::vsProbe;
    switch (setup.request) {
    case uvc::setCur: {
        if (out.size() < StreamParameters::shortWireSize) {
            return stall();
        }
        (isProbe ? m_probe : m_commit) = negotiate(m_config, StreamParameters::decode(out));
        const bool starts = !isProbe && m_config.pipe == StreamPipe::Bulk;
        return done({}, starts ? StreamEvent::Start : StreamEvent::None);
    }
    case uvc::getCur:
        return done((isProbe ? m_probe : m_commit).encode());
    case uvc::getLen:
        return done({StreamParameters::wireSize, 0});
    case uvc::getInfo:
        return done(oneByte(uvc::infoGet | uvc::infoSet));
    case uvc::getMin:
    case uvc::getMax:
        return isProbe
                   ? done(
                         negotiationBound(m_config, m_probe, setup.request == uvc::getMax).encode())
                   : stall();
    case uvc::getDef:
        return isProbe ? done(negotiate(m_config, {}).encode()) : stall();
    default:
        return stall();
    }
}

ControlResult ControlEngine::refuse(uvc::RequestError reason)
{
    m_error = reason;
    return stall();
}

} // namespace zrnsim
