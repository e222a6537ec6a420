#pragma once

#include "client/recording.h"

#include <QJsonArray>
#include <QJsonObject>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zrnrec
{

/// What is known about a frame beside its images. Times are nanoseconds since the arrival of the
/// recording's first frame; what an older recording does not tell is absent.
struct FrameFacts {
    using Value = std::optional<std::int64_t>;

    std::int64_t position = 0; ///< in the recording, from 0
    std::int64_t number = 0;   ///< frame number
    std::int64_t missing = 0;  ///< numbers skipped since the frame before in the recording
    Value dropped;             ///< of these, by the queue of the program that recorded
    std::int64_t arrival = 0;
    Value firstPayload;
    Value lastPayload;
    Value handOver;
    Value cameraCaptured; ///< count of the camera's clock
    Value cameraSent;
    Value utc;      ///< of the arrival: nanoseconds since 1970
    Value exposure; ///< microseconds
    Value gain;
};

/// From one time to another; whatever a damaged recording says is a number.
std::int64_t interval(std::int64_t from, std::int64_t to);

/// One of them, for tables.
struct FrameColumn {
    enum class Unit { Count, Nanoseconds, Microseconds, Date };

    const char* name;
    Unit unit;
    const char* meaning;
    FrameFacts::Value (*valueOf)(const FrameFacts& facts);
};
const std::vector<FrameColumn>& frameColumns();

/// Something that happened while the recording was made.
struct NoteFacts {
    std::int64_t time = 0; ///< nanoseconds since the arrival of the first frame
    QJsonObject content;
};
QJsonArray toJson(const std::vector<NoteFacts>& notes);

/// What is known about a recording.
struct RecordingFacts {
    std::string file; ///< its name without folders
    QJsonObject metadata;
    std::vector<NoteFacts> notes;
};

RecordingFacts factsOf(const zrn::Recording& recording, const std::string& path);
/// @param position of @p frame in @p recording @throws zrn::Error
FrameFacts factsOf(const zrn::Recording& recording, int position, const zrn::Frame& frame);

} // namespace zrnrec
