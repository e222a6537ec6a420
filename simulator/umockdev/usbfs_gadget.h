#pragma once

#include "model/gadget.h"
#include "umockdev/usbfs_device.h"

namespace zrnsim
{

/// usbfs for a gadget.
class UsbfsGadget final : public UsbfsDevice
{
public:
    UsbfsGadget(Gadget& gadget, const std::string& nodePath, std::string socketPath,
                const Options& options)
        : UsbfsDevice(gadget, nodePath, std::move(socketPath), options)
        , m_gadget(gadget)
    {
    }

protected:
    std::optional<unsigned> interfaceOf(const UrbHeader& request) const override;
    bool hasInterface(unsigned interface) const override;
    std::uint8_t settingOf(unsigned interface) const override;
    long admit(const Urb& urb) override;
    bool serve(UsbfsClient& client, UrbPosition urb) override;
    void noteCompletion(const Urb&) override {}
    void noteReap(const Urb&) override {}

private:
    bool serveIsochronous(UsbfsClient& client, UrbPosition urb);

    Gadget& m_gadget;
};

} // namespace zrnsim
