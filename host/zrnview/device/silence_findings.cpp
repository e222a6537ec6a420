#include "zrnview/device/silence_findings.h"

#include "common/result_codes.h"
#include "doctor/findings.h"

#include <QFile>

namespace zrnview
{
namespace
{

void addUnlessGood(QStringList& texts, const Finding& finding)
{
    if (finding.verdict == Verdict::Warning || finding.verdict == Verdict::Problem) {
        texts += finding.remedy.isEmpty()
                     ? finding.message
                     : QStringLiteral("%1\n%2").arg(finding.message, finding.remedy);
    }
}

} // namespace

QStringList silenceFindings(const CameraHealth& health,
                            const std::vector<zrnhost::UsbCamera>& onBus,
                            std::optional<int> usbfsMegabytes)
{
    QStringList texts;
    if (health.counters.unusable > 0) {
        texts += QStringLiteral("Frames arrive, but none is usable: %1.")
                     .arg(zrnhost::describeResult(health.counters.lastFailure));
    }
    texts +=
        health.answersControls
            ? QStringLiteral("The camera answers control requests, so that cable and supply hold.")
            : QStringLiteral("The camera does not answer control requests either.");
    for (const Finding& finding : judgeBus(onBus)) {
        addUnlessGood(texts, finding);
    }
    addUnlessGood(texts, judgeTransferMemory(onBus, usbfsMegabytes));
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
