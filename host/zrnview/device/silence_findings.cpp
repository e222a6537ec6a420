#include "zrnview/device/silence_findings.h"

#include "client/findings.h"
#include "client/result_codes.h"

#include <algorithm>
#include <iterator>

namespace zrnview
{
namespace
{

/// As a sentence, with what to type in lines of its own.
QString textOf(const zrn::Finding& finding)
{
    QString text = QString::fromStdString(finding.message);
    text.replace(0, 1, text.left(1).toUpper());
    return finding.remedy.empty()
               ? text + QLatin1Char('.')
               : QStringLiteral("%1:\n%2").arg(text, QString::fromStdString(finding.remedy));
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
    std::vector<zrn::Finding> findings = zrn::judgeBus(own);
    findings.push_back(zrn::judgeTransferMemory(onBus, usbfsMegabytes));
    const int before = texts.size();
    for (const zrn::Finding& finding : findings) {
        if (finding.verdict == zrn::Verdict::Warning || finding.verdict == zrn::Verdict::Problem) {
            texts += textOf(finding);
        }
    }
    if (texts.size() == before) {
        texts += QStringLiteral("Bus, access rights and kernel drivers are in order; %1. Restart "
                                "the stream; if that does not help, replug the camera.")
                     .arg(QString::fromStdString(findings.back().message));
    }
    return texts;
}

} // namespace zrnview
