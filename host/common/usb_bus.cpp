#include "common/usb_bus.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

namespace zrnhost
{
namespace
{

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Number in a sysfs attribute, or -1.
int readNumber(const QString& path, int base)
{
    bool ok = false;
    const int number = readFile(path).trimmed().toInt(&ok, base);
    return ok ? number : -1;
}

QStringList driversOfInterfaces(const QString& devicesDir, const QString& name)
{
    QStringList drivers;
    const QStringList interfaces =
        QDir(devicesDir).entryList({name + QStringLiteral(":*")}, QDir::Dirs | QDir::System);
    for (const QString& interface : interfaces) {
        const QString link = QFile::symLinkTarget(devicesDir + QLatin1Char('/') + interface +
                                                  QLatin1String("/driver"));
        const QString driver = QFileInfo(link).fileName();
        if (!driver.isEmpty() && driver != QLatin1String("usbfs")) {
            drivers += driver;
        }
    }
    drivers.removeDuplicates();
    return drivers;
}

} // namespace

std::vector<UsbCamera> camerasOnBus(const QString& root)
{
    std::vector<UsbCamera> cameras;
    const QString devicesDir = root + QStringLiteral("/sys/bus/usb/devices");
    const QStringList names =
        QDir(devicesDir).entryList(QDir::Dirs | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& name : names) {
        const QString device = devicesDir + QLatin1Char('/') + name;
        if (readNumber(device + QLatin1String("/idVendor"), 16) != cameraVendorId ||
            readNumber(device + QLatin1String("/idProduct"), 16) != cameraProductId) {
            continue;
        }
        UsbCamera camera;
        camera.name = name;
        camera.nodePath =
            QStringLiteral("/dev/bus/usb/%1/%2")
                .arg(readNumber(device + QLatin1String("/busnum"), 10), 3, 10, QLatin1Char('0'))
                .arg(readNumber(device + QLatin1String("/devnum"), 10), 3, 10, QLatin1Char('0'));
        const QByteArray node = QFile::encodeName(root + camera.nodePath);
        camera.nodeExists = ::access(node.constData(), F_OK) == 0;
        camera.accessible = ::access(node.constData(), R_OK | W_OK) == 0;
        camera.kernelDrivers = driversOfInterfaces(devicesDir, name);
        camera.descriptors = readFile(device + QLatin1String("/descriptors"));
        cameras.push_back(camera);
    }
    return cameras;
}

} // namespace zrnhost
