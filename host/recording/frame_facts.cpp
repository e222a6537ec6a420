#include "recording/frame_facts.h"

#include "client/error.h"

#include <QJsonDocument>

#include <filesystem>

namespace zrnrec
{
namespace
{

using zrn::FrameTimes;
using zrn::Recording;

std::int64_t nanosecondsOf(FrameTimes::time_point time)
{
    return std::chrono::nanoseconds(time.time_since_epoch()).count();
}

QJsonObject objectOf(const std::string& text)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
}

/// The moment that times are told from; nothing when no frame can be read.
std::optional<std::int64_t> startOf(const Recording& recording)
{
    for (int position = 0; position < recording.frameCount(); ++position) {
        try {
            const std::int64_t arrival = nanosecondsOf(recording.view(position).arrival);
            return interval(recording.sinceStart(position).count(), arrival);
        } catch (const zrn::Error&) {
            continue; // another one tells the same
        }
    }
    return std::nullopt;
}

} // namespace

std::int64_t interval(std::int64_t from, std::int64_t to)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(to) -
                                     static_cast<std::uint64_t>(from));
}

const std::vector<FrameColumn>& frameColumns()
{
    using Unit = FrameColumn::Unit;
    using Facts = const FrameFacts&;
    using Value = FrameFacts::Value;
    static const std::vector<FrameColumn> columns = {
        {"position", Unit::Count, "place of the frame in the recording, from 0",
         [](Facts facts) -> Value { return facts.position; }},
        {"number", Unit::Count, "frame number of the camera",
         [](Facts facts) -> Value { return facts.number; }},
        {"missing", Unit::Count, "frame numbers skipped since the frame before in the recording",
         [](Facts facts) -> Value { return facts.missing; }},
        {"dropped", Unit::Count, "of these, by the queue of the program that recorded",
         [](Facts facts) -> Value { return facts.dropped; }},
        {"arrival", Unit::Nanoseconds, "arrival since that of the first frame of the recording",
         [](Facts facts) -> Value { return facts.arrival; }},
        {"first_payload", Unit::Nanoseconds, "arrival of its first bytes, on the same clock",
         [](Facts facts) -> Value { return facts.firstPayload; }},
        {"last_payload", Unit::Nanoseconds, "arrival of its last bytes, on the same clock",
         [](Facts facts) -> Value { return facts.lastPayload; }},
        {"hand_over", Unit::Nanoseconds, "hand-over to the driver, on the same clock",
         [](Facts facts) -> Value { return facts.handOver; }},
        {"camera_captured", Unit::Count, "camera's clock when the frame was begun",
         [](Facts facts) -> Value { return facts.cameraCaptured; }},
        {"camera_sent", Unit::Count, "camera's clock when it sent the frame",
         [](Facts facts) -> Value { return facts.cameraSent; }},
        {"utc", Unit::Date, "date of the arrival", [](Facts facts) -> Value { return facts.utc; }},
        {"exposure", Unit::Microseconds, "exposure that was set",
         [](Facts facts) -> Value { return facts.exposure; }},
        {"gain", Unit::Count, "gain that was set", [](Facts facts) -> Value { return facts.gain; }},
    };
    return columns;
}

QJsonArray toJson(const std::vector<NoteFacts>& notes)
{
    QJsonArray array;
    for (const NoteFacts& note : notes) {
        array.append(QJsonObject{{QStringLiteral("time_ns"), static_cast<qint64>(note.time)},
                                 {QStringLiteral("note"), note.content}});
    }
    return array;
}

RecordingFacts factsOf(const Recording& recording, const std::string& path)
{
    RecordingFacts facts;
    facts.file = std::filesystem::path(path).filename().string();
    facts.metadata = objectOf(recording.metadata());
    if (const auto start = startOf(recording)) {
        for (const zrn::RecordingNote& note : recording.notes()) {
            facts.notes.push_back(
                {interval(*start, nanosecondsOf(note.time)), objectOf(note.text)});
        }
    }
    return facts;
}

FrameFacts factsOf(const Recording& recording, int position, const zrn::Frame& frame)
{
    FrameFacts facts;
    facts.position = position;
    facts.number = frame.step.number;
    facts.missing = frame.step.missing;
    facts.arrival = recording.sinceStart(position).count();
    if (recording.version() == 1) {
        return facts;
    }
    const std::int64_t start = interval(facts.arrival, nanosecondsOf(frame.arrival));
    const auto since = [start](FrameTimes::time_point time) {
        return interval(start, nanosecondsOf(time));
    };
    facts.dropped = frame.dropped;
    if (frame.times.source != FrameTimes::Source::Grab) {
        facts.firstPayload = since(frame.times.firstPayload);
        facts.lastPayload = since(frame.times.lastPayload);
        facts.handOver = since(frame.times.handOver);
    }
    facts.cameraCaptured = frame.times.captured;
    facts.cameraSent = frame.times.sent;
    if (const auto date = recording.wallTime(frame.arrival, zrn::WallClock::Kind::Realtime)) {
        facts.utc = date->sinceEpoch.count();
    }
    facts.exposure = frame.exposure.count();
    facts.gain = frame.gain;
    return facts;
}

} // namespace zrnrec
