#pragma once

#include <QJsonObject>
#include <QObject>

#include <memory>

namespace zrnview
{

struct Display;

/// Writes the images of a frame as PNG files, on another thread, with what is known about them in
/// the files' texts.
class Snapshots : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    /// Waits for files that are being written.
    ~Snapshots() override;

    /// @param folder exists @param name what the files' names begin with
    /// @param metadata as CameraDevice::metadata() gives it
    void take(std::shared_ptr<const Display> display, const QString& folder, const QString& name,
              const QJsonObject& metadata);

signals:
    void written(const QStringList& paths);
    void failed(const QString& why);
};

/// A name for a new file: "<name>_20260131-134502-123".
QString datedName(const QString& name);

} // namespace zrnview
