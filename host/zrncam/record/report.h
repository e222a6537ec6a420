#pragma once

#include "client/recording_session.h"
#include "command.h"

#include <QJsonObject>
#include <QString>

#include <vector>

/// What became of the stream of a camera and of what was recorded of it.
struct RecordResult {
    std::vector<zrn::RecordedPart> parts;
    std::vector<zrn::Outage> outages;
    std::uint64_t streamed = 0; ///< frames
    double seconds = 0;
    bool isOut = false; ///< without frames in the end
};

/// @throws ToolError where frames are lost that need not be
ExitCode report(Context& context, const zrn::RecordingSession& session, const RecordResult& result);

/// Of one camera among several.
QString recordRow(const QJsonObject& camera);
