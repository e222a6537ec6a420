#include "zrnview/device/silence_findings.h"

#include "client/result_codes.h"
#include "doctor/findings.h"

#include <QFile>

#include <algorithm>
#include <iterator>

namespace zrnview
{
namespace
{

/// As a sentence, with what to type in lines of its own.
QString textOf(const Finding& finding)
{
    QString text = finding.message;
    text.replace(0, 1, text.left(1).toUpper());
    return finding.remedy.isEmpty() ? text + QLatin1Char('.')
                                    : QStringLiteral("%1:\n%2").arg(text, finding.remedy);
}

} // namespace

QStringList silenceFindings(const CameraHealth& health, const QString& port,
                            const std::vector<zrn::BusCamera>& onBus,
                            std::optional<int> usbfsMegabytes)
{
    QStringList texts;
    if (health.counters.unusable > 0) {
        texts += QStringLiteral("Frames arrive, but none is usable: %1.")
                     .arg(QString::fromStdString(zrn::describeResult(health.counters.lastFailure)));
    }
    texts +=
        health.answersControls
            ? QStringLiteral("The camera answers control requests, so that cable and supply hold.")
            : QStringLiteral("The camera does not answer control requests either.");
    std::vector<zrn::BusCamera> own;
    std::copy_if(
        onBus.begin(), onBus.end(), std::back_inserter(own),
        [&port](const zrn::BusCamera& camera) { return camera.port == port.toStdString(); });
    std::vector<Finding> findings = judgeBus(own);
    findings.push_back(judgeTransferMemory(onBus, usbfsMegabytes));
    const int before = texts.size();
    for (const Finding& finding : findings) {
        if (finding.verdict == Verdict::Warning || finding.verdict == Verdict::Problem) {
            texts += textOf(finding);
        }
    }
    if (texts.size() == before) {
        texts += QStringLiteral("Bus, access rights and kernel drivers are in order; %1. Restart "
                                "the stream; if that does not help, replug the camera.")
                     .arg(findings.back().message);
    }
    return texts;
}

std::optional<int> usbfsMegabytes(const QString& root)
{
    QFile file(root + QStringLiteral("/sys/module/usbcore/parameters/usbfs_memory_mb"));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    bool ok = false;
    const int megabytes = file.readAll().trimmed().toInt(&ok);
    return ok ? std::optional(megabytes) : std::nullopt;
}

} // namespace zrnview
