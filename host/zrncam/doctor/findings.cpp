#include "doctor/findings.h"

#include "client/access_remedy.h"
#include "common/usb_transfers.h"

#include <QStringList>

#include <algorithm>

namespace
{

constexpr qint64 bytesPerMiB = 1 << 20;

QString portOf(const zrn::BusCamera& camera)
{
    return QString::fromStdString(camera.port);
}

QString nodeOf(const zrn::BusCamera& camera)
{
    return QString::fromStdString(camera.node());
}

QString kernelDriversOf(const zrn::BusCamera& camera)
{
    QStringList names;
    for (const std::string& name : camera.kernelDrivers) {
        names += QString::fromStdString(name);
    }
    return names.join(QStringLiteral(", "));
}

Finding judgeAccess(const zrn::BusCamera& camera)
{
    const QString subject = QStringLiteral("permission");
    if (!camera.nodeExists) {
        return {subject, Verdict::Problem,
                QStringLiteral("the camera at %1 has no device node %2")
                    .arg(portOf(camera), nodeOf(camera)),
                QString::fromStdString(zrn::missingNodeRemedy())};
    }
    if (!camera.accessible) {
        return {subject, Verdict::Problem,
                QStringLiteral("this user may not open %1, the camera at %2")
                    .arg(nodeOf(camera), portOf(camera)),
                QString::fromStdString(zrn::accessRemedy())};
    }
    return {subject, Verdict::Good, QStringLiteral("this user may open %1").arg(nodeOf(camera)),
            QString()};
}

QString watchersRemedy(const zrn::BusCamera& camera)
{
    const QString advice = QStringLiteral("close programs that use the camera as a webcam");
    if (camera.videoNodes.empty()) {
        return advice;
    }
    QStringList nodes;
    for (const std::string& node : camera.videoNodes) {
        nodes += QString::fromStdString(node);
    }
    return QStringLiteral("%1 ('fuser -v %2' lists them)").arg(advice, nodes.join(' '));
}

Finding judgeKernelDrivers(const zrn::BusCamera& camera)
{
    const QString subject = QStringLiteral("kernel-driver");
    if (camera.kernelDrivers.empty()) {
        return {subject, Verdict::Good,
                QStringLiteral("no kernel driver holds the camera at %1").arg(portOf(camera)),
                QString()};
    }
    return {subject, Verdict::Warning,
            QStringLiteral("the kernel driver %1 holds the camera at %2; it is detached while the "
                           "camera is in use")
                .arg(kernelDriversOf(camera), portOf(camera)),
            watchersRemedy(camera)};
}

Finding judgeUse(const zrn::BusCamera& camera)
{
    const QString subject = QStringLiteral("use");
    if (!camera.isHeldElsewhere()) {
        return {subject, Verdict::Good,
                QStringLiteral("no program holds the camera at %1").arg(portOf(camera)), QString()};
    }
    return {subject, Verdict::Warning,
            QStringLiteral("the camera at %1 is in use by %2")
                .arg(portOf(camera), QString::fromStdString(camera.holderText())),
            QStringLiteral("end that program to use this camera from another one")};
}

/// The memory of the transfers, and what the figure is worth.
QString describeNeed(qint64 mebibytes, zrnhost::SizeBasis basis)
{
    return basis == zrnhost::SizeBasis::FrameSize
               ? QStringLiteral("the transfers take %1 MiB if each payload is a whole frame; "
                                "smaller payloads need less, larger ones more, and not every "
                                "camera could be asked for their size")
                     .arg(mebibytes)
               : QStringLiteral("the transfers take %1 MiB").arg(mebibytes);
}

} // namespace

const char* verdictName(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Good:
        return "ok";
    case Verdict::Warning:
        return "warning";
    case Verdict::Problem:
        return "problem";
    case Verdict::Unknown:
        break;
    }
    return "unknown";
}

std::vector<Finding> judgeBus(const std::vector<zrn::BusCamera>& cameras)
{
    if (cameras.empty()) {
        return {{QStringLiteral("bus"), Verdict::Problem,
                 QStringLiteral("no device %1 is on the bus").arg(QLatin1String(zrn::cameraIds)),
                 QStringLiteral("check cable, supply and hub; 'lsusb' lists what is on the bus")}};
    }
    std::vector<Finding> findings{{QStringLiteral("bus"), Verdict::Good,
                                   QStringLiteral("cameras on the bus: %1").arg(cameras.size()),
                                   QString()}};
    for (const zrn::BusCamera& camera : cameras) {
        findings.push_back(judgeAccess(camera));
        findings.push_back(judgeKernelDrivers(camera));
        findings.push_back(judgeUse(camera));
    }
    return findings;
}

Finding judgeTransferMemory(const std::vector<zrn::BusCamera>& cameras, std::optional<int> limitMiB)
{
    const QString subject = QStringLiteral("usbfs-memory");
    qint64 needed = 0;
    auto basis = zrnhost::SizeBasis::Descriptors;
    for (const zrn::BusCamera& camera : cameras) {
        const zrnhost::TransferMemory memory = zrnhost::transferMemory(
            QByteArray::fromStdString(camera.descriptors),
            camera.payloadBytes ? std::optional<qint64>(*camera.payloadBytes) : std::nullopt);
        needed += memory.bytes;
        basis = std::max(basis, memory.basis);
    }
    if (needed == 0) {
        return {subject, Verdict::Unknown,
                QStringLiteral("no camera shows how much memory its transfers take"), QString()};
    }
    const qint64 neededMiB = (needed + bytesPerMiB - 1) / bytesPerMiB;
    const QString need = describeNeed(neededMiB, basis);
    if (!limitMiB) {
        return {subject, Verdict::Unknown,
                need + QStringLiteral("; the limit of usbfs cannot be read"), QString()};
    }
    if (*limitMiB == 0 || neededMiB <= *limitMiB) {
        return {subject, Verdict::Good,
                *limitMiB == 0 ? need + QStringLiteral("; usbfs has no limit")
                               : need + QStringLiteral("; usbfs allows %1 MiB").arg(*limitMiB),
                QString()};
    }
    return {subject, basis == zrnhost::SizeBasis::Descriptors ? Verdict::Problem : Verdict::Warning,
            need + QStringLiteral("; usbfs allows %1 MiB; above it a stream can fail to start, or "
                                  "hang when it is stopped")
                       .arg(*limitMiB),
            QStringLiteral("echo %1 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb\n"
                           "for good: usbcore.usbfs_memory_mb=%1 on the kernel's command line")
                .arg(neededMiB)};
}

Guards guardsFrom(const QString& answer)
{
    if (answer.isEmpty()) {
        return Guards::Unknown;
    }
    const bool isSafe =
        answer == QLatin1String("in effect") || answer == QLatin1String("not needed");
    return isSafe ? Guards::InEffect : Guards::Missing;
}

Finding judgeGuards(const QString& answer)
{
    const QString subject = QStringLiteral("guards");
    switch (guardsFrom(answer)) {
    case Guards::InEffect:
        return {
            subject, Verdict::Good,
            QStringLiteral("the driver guards this process against faults of libusb and libuvc"),
            QString()};
    case Guards::Missing:
        return {
            subject, Verdict::Warning,
            QStringLiteral("the driver cannot guard this process against faults of libusb and "
                           "libuvc: %1")
                .arg(answer),
            QStringLiteral("where cameras are unplugged while in use, install libusb 1.0.27 and "
                           "libuvc 0.0.7 or later")};
    case Guards::Unknown:
        break;
    }
    return {subject, Verdict::Unknown,
            QStringLiteral("the driver was not asked whether it guards against faults of libusb "
                           "and libuvc"),
            QString()};
}

std::vector<Finding> judgeLibraries(const LibraryVersions& versions, Guards guards)
{
    std::vector<Finding> findings;
    // Where nobody knows, nothing is claimed.
    const bool isGuarded = guards != Guards::Missing;
    const QString guarded =
        guards == Guards::InEffect
            ? QStringLiteral("%1 %2 fails when cameras leave; the driver guards against that")
            : QStringLiteral("%1 %2 fails when cameras leave, where the driver does not guard "
                             "against that");
    const Verdict guardedVerdict = guards == Guards::InEffect ? Verdict::Good : Verdict::Unknown;
    const QString libusb = QStringLiteral("libusb");
    if (versions.libusb.isNull()) {
        findings.push_back({libusb, Verdict::Unknown, QStringLiteral("libusb cannot be loaded"),
                            QStringLiteral("install the package libusb-1.0-0")});
    } else if (versions.libusb < QVersionNumber(1, 0, 27) && isGuarded) {
        findings.push_back(
            {libusb, guardedVerdict, guarded.arg(libusb, versions.libusb.toString()), QString()});
    } else if (versions.libusb < QVersionNumber(1, 0, 27)) {
        findings.push_back(
            {libusb, Verdict::Warning,
             QStringLiteral("libusb %1 can abort the program when a camera is unplugged while it "
                            "is open; 1.0.27 and later do not")
                 .arg(versions.libusb.toString()),
             QStringLiteral("where cameras are unplugged while in use, install libusb 1.0.27 or "
                            "later")});
    } else {
        findings.push_back({libusb, Verdict::Good,
                            QStringLiteral("libusb %1").arg(versions.libusb.toString()),
                            QString()});
    }

    const QString libuvc = QStringLiteral("libuvc");
    if (versions.libuvc.isNull()) {
        findings.push_back({libuvc, Verdict::Unknown,
                            QStringLiteral("libuvc cannot be loaded, or hides its version"),
                            QStringLiteral("install the package libuvc0")});
    } else if (versions.libuvc <= QVersionNumber(0, 0, 6) && isGuarded) {
        findings.push_back({libuvc, guardedVerdict,
                            guarded.arg(libuvc, versions.libuvc.toString()) +
                                QStringLiteral("; frames of more than 16 MiB are refused"),
                            QString()});
    } else if (versions.libuvc <= QVersionNumber(0, 0, 6)) {
        findings.push_back(
            {libuvc, Verdict::Warning,
             QStringLiteral("libuvc %1 can wait for ever when a stream stops after its camera was "
                            "unplugged or the usbfs memory limit was met, and takes frames of up "
                            "to 16 MiB only")
                 .arg(versions.libuvc.toString()),
             QStringLiteral("stop the stream before unplugging; keep the usbfs memory limit above "
                            "what the transfers take")});
    } else {
        findings.push_back({libuvc, Verdict::Good,
                            QStringLiteral("libuvc %1").arg(versions.libuvc.toString()),
                            QString()});
    }
    return findings;
}

Finding judgePlugin(const zrn::PluginInspection& inspection)
{
    const QString subject = QStringLiteral("plugin");
    if (inspection.fault != zrn::PluginFault::None) {
        return {subject, Verdict::Problem, QString::fromStdString(inspection.message),
                QString::fromStdString(inspection.remedy())};
    }
    return {subject, Verdict::Good,
            QStringLiteral("%1, built for Qt %2; this program runs with Qt %3")
                .arg(QString::fromStdString(inspection.path),
                     QString::fromStdString(inspection.qtVersion), QString::fromLatin1(qVersion())),
            QString()};
}

Finding judgeEnumeration(int opened, std::size_t onBus)
{
    const QString message =
        QStringLiteral("the driver opened %1 of %2 cameras").arg(opened).arg(onBus);
    if (opened >= 0 && static_cast<std::size_t>(opened) >= onBus) {
        return {QStringLiteral("enumeration"), Verdict::Good, message, QString()};
    }
    return {QStringLiteral("enumeration"), Verdict::Problem, message,
            QStringLiteral("close other programs that use a camera, then replug it; two cameras "
                           "with one serial count once")};
}

Finding judgeOpening(const zrn::BusCamera& camera, bool isOpened)
{
    const QString subject = QStringLiteral("enumeration");
    const QString name =
        camera.serial.empty()
            ? portOf(camera)
            : QStringLiteral("%1 (%2)").arg(portOf(camera), QString::fromStdString(camera.serial));
    if (isOpened) {
        return {subject, Verdict::Good,
                QStringLiteral("the driver opened the camera at %1").arg(name), QString()};
    }
    return {
        subject, Verdict::Problem,
        QStringLiteral("the driver could not open the camera at %1, %2").arg(name, nodeOf(camera)),
        QStringLiteral("replug this camera; try another cable or port if that does not help")};
}
