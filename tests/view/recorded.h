#pragma once

#include "client/recording.h"
#include "zrnview/device/camera_device.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <string>
#include <vector>

namespace zrnview
{

/// What the device's recording has written until now.
inline std::uint64_t writtenFrames(const CameraDevice& device)
{
    return device.recorder() ? device.recorder()->progress().frames : 0;
}

/// The last file of the device's recording, which has ended.
inline std::string fileOf(const CameraDevice& device)
{
    return zrn::sumOf(device.recorder()->parts()).files.back().path;
}

/// The notes of a recording that are of one event.
inline std::vector<zrn::RecordingNote> notesOf(const zrn::Recording& recording, const char* event)
{
    std::vector<zrn::RecordingNote> notes;
    for (const zrn::RecordingNote& note : recording.notes()) {
        const QJsonObject object =
            QJsonDocument::fromJson(QByteArray::fromStdString(note.text)).object();
        if (object[QLatin1String("event")] == QLatin1String(event)) {
            notes.push_back(note);
        }
    }
    return notes;
}

} // namespace zrnview
