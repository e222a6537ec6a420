#pragma once

#include "model/usb.h"

#include <usbredirproto.h>

namespace zrnsim
{

/// Slot of an endpoint address in the tables of the usbredir protocol.
constexpr std::size_t endpointSlot(std::uint8_t address)
{
    return (address & 0x80U) >> 3U | (address & 0x0fU);
}

/// The interfaces of a configuration descriptor, each with its first alternate setting.
usb_redir_interface_info_header interfaceInfo(ByteView configuration);

/// The endpoints of a configuration descriptor.
/// @param streamingAlternate alternate setting of the streaming interface; the others are in 0
usb_redir_ep_info_header endpointInfo(ByteView configuration, std::uint8_t streamingAlternate);

} // namespace zrnsim
