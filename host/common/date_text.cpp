#include "common/date_text.h"

#include <QDateTime>

namespace zrnhost
{

std::string dateText(std::int64_t utc)
{
    constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
    constexpr int digits = 9;
    std::int64_t seconds = utc / nanosecondsPerSecond;
    std::int64_t rest = utc % nanosecondsPerSecond;
    if (rest < 0) {
        --seconds;
        rest += nanosecondsPerSecond;
    }
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC)
               .toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"))
               .toStdString() +
           '.' + QString::number(rest).rightJustified(digits, QLatin1Char('0')).toStdString() + 'Z';
}

} // namespace zrnhost
