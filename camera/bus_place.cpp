#include "bus_place.h"

#include <algorithm>
#include <limits>

namespace
{

constexpr int digits = 3;

std::optional<std::uint8_t> numberOf(QStringView text)
{
    const bool isNumber =
        text.size() == digits && std::all_of(text.begin(), text.end(), [](QChar c) {
            return c >= QLatin1Char('0') && c <= QLatin1Char('9');
        });
    const int number = isNumber ? text.toInt() : -1;
    if (number < 0 || number > std::numeric_limits<std::uint8_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(number);
}

} // namespace

std::optional<BusPlace> busPlaceOf(const QString& text)
{
    if (text.size() != 2 * digits + 1 || text[digits] != QLatin1Char('/')) {
        return std::nullopt;
    }
    const std::optional<std::uint8_t> bus = numberOf(QStringView(text).left(digits));
    const std::optional<std::uint8_t> address = numberOf(QStringView(text).right(digits));
    if (!bus || !address) {
        return std::nullopt;
    }
    return BusPlace{*bus, *address};
}

QString nameOf(const BusPlace& place)
{
    return QStringLiteral("%1/%2")
        .arg(place.bus, digits, 10, QLatin1Char('0'))
        .arg(place.address, digits, 10, QLatin1Char('0'));
}
