#include "doctor/payload_probe.h"

#include "common/usb_transfers.h"

#include <QFile>

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace
{

// A request of the class to an interface, device to host, as UVC 1.x numbers it.
constexpr quint8 readFromInterface = 0xa1;
constexpr quint8 getMaximum = 0x83;
constexpr quint16 probeControl = 0x0100;
constexpr quint32 timeoutMilliseconds = 500;

QByteArray readProbeMaximum(int node, quint8 interface)
{
    QByteArray block(zrnhost::probeBlockBytes, '\0');
    usbdevfs_ctrltransfer request{readFromInterface,
                                  getMaximum,
                                  probeControl,
                                  interface,
                                  static_cast<quint16>(block.size()),
                                  timeoutMilliseconds,
                                  block.data()};
    const int length = ::ioctl(node, USBDEVFS_CONTROL, &request);
    return length < 0 ? QByteArray() : block.left(length);
}

} // namespace

std::optional<qint64> askPayloadBytes(const zrn::BusCamera& camera)
{
    const QByteArray descriptors = QByteArray::fromStdString(camera.descriptors);
    if (camera.use == zrn::Use::Held ||
        zrnhost::transferMemory(descriptors, std::nullopt).basis != zrnhost::SizeBasis::FrameSize) {
        return std::nullopt;
    }
    const std::optional<quint8> interface = zrnhost::videoStreamInterface(descriptors);
    QFile node(QString::fromStdString(camera.node()));
    if (!interface ||
        !node.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered)) {
        return std::nullopt;
    }
    // The kernel refuses the claim while anybody else holds the interface.
    unsigned claimed = *interface;
    if (::ioctl(node.handle(), USBDEVFS_CLAIMINTERFACE, &claimed) != 0) {
        return std::nullopt;
    }
    const QByteArray block = readProbeMaximum(node.handle(), *interface);
    ::ioctl(node.handle(), USBDEVFS_RELEASEINTERFACE, &claimed);
    return zrnhost::payloadBytesOf(block);
}
