#include "model/control_fault.h"

#include <array>
#include <utility>

namespace zrnsim
{

namespace
{

using Named = std::pair<std::uint8_t, const char*>;

constexpr std::array standardRequests{
    Named{usb::getStatus, "get-status"},
    Named{usb::clearFeature, "clear-feature"},
    Named{usb::setFeature, "set-feature"},
    Named{usb::getDescriptor, "get-descriptor"},
    Named{usb::getConfiguration, "get-configuration"},
    Named{usb::setConfiguration, "set-configuration"},
    Named{usb::getInterface, "get-interface"},
    Named{usb::setInterface, "set-interface"},
    Named{usb::setSel, "set-sel"},
    Named{usb::setIsochronousDelay, "set-isochronous-delay"},
};

constexpr std::array classRequests{
    Named{uvc::setCur, "set-cur"},   Named{uvc::getCur, "get-cur"}, Named{uvc::getMin, "get-min"},
    Named{uvc::getMax, "get-max"},   Named{uvc::getRes, "get-res"}, Named{uvc::getLen, "get-len"},
    Named{uvc::getInfo, "get-info"}, Named{uvc::getDef, "get-def"},
};

constexpr std::array recipients{
    Named{usb::recipientDevice, "device"},
    Named{usb::recipientInterface, "interface"},
    Named{usb::recipientEndpoint, "endpoint"},
};

constexpr std::array streamControls{
    Named{uvc::vsProbe, "probe"},
    Named{uvc::vsCommit, "commit"},
    Named{uvc::vsStreamErrorCode, "stream-error-code"},
};

constexpr const char* requestErrorCode = "request-error-code";

template <std::size_t Count>
std::string find(const std::array<Named, Count>& names, std::uint8_t number)
{
    for (const auto& [value, name] : names) {
        if (value == number) {
            return name;
        }
    }
    return std::to_string(number);
}

std::string classTarget(const SetupPacket& setup)
{
    if (setup.indexLow() == topology::streamingInterface) {
        return find(streamControls, setup.valueHigh());
    }
    if (const ControlTraits* traits = findControl(setup.indexHigh(), setup.valueHigh())) {
        return std::string(traits->name);
    }
    if (setup.indexHigh() == 0 && setup.valueHigh() == uvc::vcRequestErrorCode) {
        return requestErrorCode;
    }
    return "entity " + std::to_string(setup.indexHigh()) + " selector " +
           std::to_string(setup.valueHigh());
}

} // namespace

RequestName nameOf(const SetupPacket& setup)
{
    if (setup.type() == usb::typeClass) {
        return {find(classRequests, setup.request), classTarget(setup)};
    }
    return {find(standardRequests, setup.request), find(recipients, setup.recipient())};
}

std::vector<std::string_view> requestNames()
{
    std::vector<std::string_view> names;
    for (const auto& [number, name] : classRequests) {
        names.emplace_back(name);
    }
    for (const auto& [number, name] : standardRequests) {
        names.emplace_back(name);
    }
    return names;
}

std::vector<std::string_view> targetNames()
{
    std::vector<std::string_view> names;
    for (const ControlTraits& traits : controlTable) {
        names.push_back(traits.name);
    }
    for (const auto& [number, name] : streamControls) {
        names.emplace_back(name);
    }
    for (const auto& [number, name] : recipients) {
        names.emplace_back(name);
    }
    names.emplace_back(requestErrorCode);
    return names;
}

bool ControlFault::matches(const SetupPacket& setup, const RequestName& name) const
{
    const bool isClass = setup.type() == usb::typeClass;
    const bool isTarget = target.empty() ? isClass : target == name.target;
    return isTarget && (request.empty() || request == name.request);
}

} // namespace zrnsim
