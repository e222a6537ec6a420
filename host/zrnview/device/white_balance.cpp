#include "zrnview/device/white_balance.h"

#include <QCoreApplication>

namespace zrnview
{
namespace
{

constexpr BayerChannels<Setting> settingsOfGains = {Setting::RGain, Setting::GrGain,
                                                    Setting::GbGain, Setting::BGain};

QString tr(const char* text)
{
    return QCoreApplication::translate("WhiteBalance", text);
}

} // namespace

WhiteBalance whiteBalanceFor(const CameraDevice& device, const Display& display,
                             BayerPattern pattern, const QRect& region)
{
    if (pattern == BayerPattern::None) {
        return {std::nullopt, tr("The camera's colour pattern is not chosen")};
    }
    BayerChannels<int> gains{};
    for (std::size_t i = 0; i < gains.size(); ++i) {
        const SettingReading* reading = device.reading(settingsOfGains.at(i));
        if (!reading || reading->readCode != ErrorCode::Success) {
            return {std::nullopt, tr("The camera's colour gains could not be read")};
        }
        gains.at(i) = static_cast<int>(reading->value);
    }
    BayerChannels<double> means{};
    int images = 0;
    for (const QImage& image : {display.a, display.b}) {
        const QRect part = region.isEmpty() ? image.rect() : region & image.rect();
        if (part.width() < 2 || part.height() < 2) {
            continue;
        }
        const BayerChannels<double> ofImage = channelMeans(image, pattern, part);
        for (std::size_t i = 0; i < means.size(); ++i) {
            means.at(i) = (means.at(i) * images + ofImage.at(i)) / (images + 1);
        }
        ++images;
    }
    WhiteBalance balance{balancedGains(means, gains), {}};
    if (!balance.gains) {
        balance.problem = tr("The picture is too dark or too bright, or a colour gain is 0");
    }
    return balance;
}

void setColourGains(CameraDevice& device, const BayerChannels<int>& gains)
{
    for (std::size_t i = 0; i < gains.size(); ++i) {
        device.set(settingsOfGains.at(i), gains.at(i));
    }
}

} // namespace zrnview
