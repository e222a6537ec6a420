#include "zrnview/widgets/colour_memory.h"

#include <QSettings>
#include <QStringList>

namespace zrnview
{
namespace
{

const QLatin1String patternKey("bayerPattern");
const QLatin1String gainsKey("whiteBalance");
constexpr int highestGain = 255;

} // namespace

BayerPattern ColourMemory::pattern() const
{
    return bayerPatternOf(QSettings().value(m_group + patternKey).toString());
}

void ColourMemory::setPattern(BayerPattern pattern)
{
    QSettings().setValue(m_group + patternKey, nameOf(pattern));
}

std::optional<BayerChannels<int>> ColourMemory::gains() const
{
    const QStringList texts = QSettings().value(m_group + gainsKey).toStringList();
    BayerChannels<int> gains{};
    if (texts.size() != static_cast<int>(gains.size())) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < gains.size(); ++i) {
        gains.at(i) = texts.at(static_cast<int>(i)).toInt();
        if (gains.at(i) < 1 || gains.at(i) > highestGain) {
            return std::nullopt;
        }
    }
    return gains;
}

void ColourMemory::setGains(const BayerChannels<int>& gains)
{
    QStringList texts;
    for (const int gain : gains) {
        texts += QString::number(gain);
    }
    QSettings().setValue(m_group + gainsKey, texts);
}

} // namespace zrnview
