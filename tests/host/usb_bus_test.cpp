#include "common/usb_bus.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <unistd.h>

using namespace zrnhost;

namespace
{

/// A folder that stands in for the root of the file system.
class FakeRoot
{
public:
    void write(const QString& path, const QByteArray& content)
    {
        const QString full = m_folder.path() + path;
        QDir().mkpath(QFileInfo(full).path());
        QFile file(full);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    void addDevice(const QString& name, const QByteArray& vendor, const QByteArray& product,
                   int number)
    {
        const QString folder = QStringLiteral("/sys/bus/usb/devices/") + name;
        write(folder + QStringLiteral("/idVendor"), vendor + "\n");
        write(folder + QStringLiteral("/idProduct"), product + "\n");
        write(folder + QStringLiteral("/busnum"), "1\n");
        write(folder + QStringLiteral("/devnum"), QByteArray::number(number) + "\n");
    }

    QString path() const { return m_folder.path(); }

private:
    QTemporaryDir m_folder;
};

} // namespace

TEST(UsbBusTest, FindsOnlyServedCameras)
{
    FakeRoot root;
    root.addDevice(QStringLiteral("1-1"), "0483", "5750", 7);
    root.addDevice(QStringLiteral("1-2"), "0483", "5740", 8);
    root.addDevice(QStringLiteral("1-3"), "1d6b", "0002", 1);
    const auto cameras = camerasOnBus(root.path());
    ASSERT_EQ(cameras.size(), 1U);
    EXPECT_EQ(cameras[0].name, QStringLiteral("1-1"));
    EXPECT_EQ(cameras[0].nodePath, QStringLiteral("/dev/bus/usb/001/007"));
    EXPECT_FALSE(cameras[0].nodeExists);
    EXPECT_FALSE(cameras[0].accessible);
}

TEST(UsbBusTest, TellsAccessAndKernelDrivers)
{
    FakeRoot root;
    root.addDevice(QStringLiteral("1-1"), "0483", "5750", 7);
    root.write(QStringLiteral("/dev/bus/usb/001/007"), {});
    root.write(QStringLiteral("/sys/bus/usb/devices/1-1/descriptors"), "\x12\x01");
    for (const char* interface : {"1-1:1.0", "1-1:1.1"}) {
        QDir(root.path()).mkpath(QStringLiteral("sys/bus/usb/devices/") + QLatin1String(interface));
    }
    QDir(root.path()).mkpath(QStringLiteral("sys/bus/usb/drivers/uvcvideo"));
    ASSERT_TRUE(QFile::link(QStringLiteral("../../drivers/uvcvideo"),
                            root.path() + QStringLiteral("/sys/bus/usb/devices/1-1:1.0/driver")));
    const auto cameras = camerasOnBus(root.path());
    ASSERT_EQ(cameras.size(), 1U);
    EXPECT_TRUE(cameras[0].nodeExists);
    EXPECT_TRUE(cameras[0].accessible);
    EXPECT_EQ(cameras[0].kernelDrivers, QStringList{QStringLiteral("uvcvideo")});
    EXPECT_EQ(cameras[0].descriptors, QByteArray("\x12\x01"));
}

TEST(UsbBusTest, NoBusIsNoCamera)
{
    EXPECT_TRUE(camerasOnBus(QStringLiteral("/nonexistent")).empty());
}
