#include "common/file_writer.h"

#include <QSaveFile>

namespace zrnhost
{
namespace
{

/// Qt knows the reason only of a write that brought no byte at all.
bool writeAll(QSaveFile& file, const QByteArray& bytes)
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

} // namespace

QString writeFile(const QString& path, const QByteArray& bytes)
{
    QSaveFile file(path);
    // What Qt keeps in a buffer of its own it writes at the end, and does not notice a failure.
    const bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
                           writeAll(file, bytes) && file.commit();
    return isWritten ? QString() : QStringLiteral("%1: %2").arg(path, file.errorString());
}

} // namespace zrnhost
