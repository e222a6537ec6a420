#include "zrnview/device/recorded_events.h"

#include "client/error.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <limits>

namespace zrnview
{
namespace
{

QString told(const char* text)
{
    return QCoreApplication::translate("zrnview::RecordedEvent", text);
}

QString outageText(const QString& what, const QJsonObject& note)
{
    return told("%1 after %2 s, %3 frames missing")
        .arg(what)
        .arg(note[QLatin1String("seconds")].toDouble(), 0, 'f', 1)
        .arg(note[QLatin1String("missing")].toInt());
}

/// What the note says, without its place in the recording.
RecordedEvent eventOf(const QJsonObject& note)
{
    using Kind = RecordedEvent::Kind;
    const QString event = note[QLatin1String("event")].toString();
    const auto field = [&note](const char* name) {
        return note[QLatin1String(name)].toVariant().toString();
    };
    if (event == QLatin1String("setting")) {
        return {Kind::Setting, 0, 0, QStringLiteral("%1 = %2").arg(field("key"), field("value"))};
    }
    if (event == QLatin1String("lost")) {
        return {Kind::Outage, 0, 0, told("No frames: %1").arg(field("cause"))};
    }
    if (event == QLatin1String("refused")) {
        return {Kind::Outage, 0, 0, told("Refused: %1").arg(field("reason"))};
    }
    if (event == QLatin1String("restarted")) {
        return {Kind::Outage, 0, 0, outageText(told("Stream restarted"), note)};
    }
    if (event == QLatin1String("back")) {
        return {Kind::Outage, 0, 0, outageText(told("Frames again"), note)};
    }
    if (field("what") == QLatin1String("trigger")) {
        return {Kind::Other, 0, 0, told("Trigger")};
    }
    return {Kind::Other, 0, 0,
            QString::fromUtf8(QJsonDocument(note).toJson(QJsonDocument::Compact))};
}

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

/// When the first readable frame from a position on arrived; never where there is none.
std::int64_t arrivalFrom(const zrn::Recording& recording, int position)
{
    for (; position < recording.frameCount(); ++position) {
        try {
            return recording.header(position).arrivalNanoseconds;
        } catch (const zrn::Error&) {
            continue; // the next one may be whole
        }
    }
    return never;
}

/// The first frame that arrived at a time or later.
int positionAt(const zrn::Recording& recording, std::int64_t time)
{
    int from = 0;
    int to = recording.frameCount();
    while (from < to) {
        const int middle = from + (to - from) / 2;
        if (arrivalFrom(recording, middle) < time) {
            from = middle + 1;
        } else {
            to = middle;
        }
    }
    return from;
}

} // namespace

std::vector<RecordedEvent> eventsOf(const zrn::Recording& recording)
{
    std::vector<RecordedEvent> events;
    const std::int64_t start = arrivalFrom(recording, 0);
    if (start == never) {
        return events; // on no time line
    }
    for (const zrn::RecordingNote& note : recording.notes()) {
        const std::int64_t time = std::chrono::nanoseconds(note.time.time_since_epoch()).count();
        RecordedEvent event =
            eventOf(QJsonDocument::fromJson(QByteArray::fromStdString(note.text)).object());
        if (event.kind == RecordedEvent::Kind::Setting && time <= start) {
            continue;
        }
        event.position = std::min(positionAt(recording, time), recording.frameCount() - 1);
        event.seconds = static_cast<double>(time - start) / 1e9;
        events.push_back(std::move(event));
    }
    return events;
}

} // namespace zrnview
