#pragma once

#include "zrnview/model/bayer.h"

#include <QString>

#include <optional>

namespace zrnview
{

/// What was chosen for the colours of a camera, kept from one run to the next: in the group
/// cameras/SERIAL of the application's QSettings. Reentrant.
class ColourMemory
{
public:
    explicit ColourMemory(const QString& serial)
        : m_group(QStringLiteral("cameras/%1/").arg(serial))
    {
    }

    /// None where none was chosen.
    BayerPattern pattern() const;
    void setPattern(BayerPattern pattern);

    /// The gains of the last white balance.
    std::optional<BayerChannels<int>> gains() const;
    void setGains(const BayerChannels<int>& gains);

private:
    QString m_group;
};

} // namespace zrnview
