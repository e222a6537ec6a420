#pragma once

#include "model/camera.h"
#include "umockdev/usbfs_device.h"

namespace zrnsim
{

/// usbfs for a camera: one streaming endpoint.
class UsbfsCamera final : public UsbfsDevice
{
public:
    UsbfsCamera(Camera& camera, const std::string& nodePath, std::string socketPath,
                const Options& options)
        : UsbfsDevice(camera, nodePath, std::move(socketPath), options)
        , m_camera(camera)
        , m_pipe(camera.config().pipe)
    {
    }

protected:
    std::optional<unsigned> interfaceOf(const UrbHeader& request) const override;
    bool hasInterface(unsigned interface) const override;
    std::uint8_t settingOf(unsigned interface) const override;
    long admit(const Urb& urb) override;
    bool serve(UsbfsClient& client, UrbPosition urb) override;
    void noteCompletion(const Urb& urb) override;
    void noteReap(const Urb& urb) override;

private:
    bool serveIsochronous(UsbfsClient& client, UrbPosition urb);

    Camera& m_camera;
    const StreamPipe m_pipe;
};

} // namespace zrnsim
