#include "common/file_writer.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace zrnhost
{
namespace
{

/// Qt knows the reason only of a write that brought no byte at all.
bool writeAll(QFileDevice& file, const QByteArray& bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const qint64 written = file.write(bytes.constData() + done, bytes.size() - done);
        if (written <= 0) {
            return false;
        }
        done += written;
    }
    return true;
}

QString failureOf(const QFileDevice& file, const QString& path)
{
    return QStringLiteral("%1: %2").arg(path, file.errorString());
}

/// Writes to a device or a pipe, which has to stay what it is.
QString writeThrough(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    const bool isWritten =
        file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && writeAll(file, bytes);
    return isWritten ? QString() : failureOf(file, path);
}

} // namespace

QString writeFile(const QString& path, const QByteArray& bytes)
{
    const QFileInfo target(path);
    if (target.exists() && !target.isFile() && !target.isDir()) {
        return writeThrough(path, bytes);
    }
    QSaveFile file(path);
    // What Qt keeps in a buffer of its own it writes at the end, and does not notice a failure.
    const bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
                           writeAll(file, bytes) && file.commit();
    return isWritten ? QString() : failureOf(file, path);
}

} // namespace zrnhost
