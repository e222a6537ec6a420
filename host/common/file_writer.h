#pragma once

#include <QByteArray>
#include <QString>

namespace zrnhost
{

/// Writes a file, and replaces one of that name only once it is complete. What is no file, such as
/// a pipe, is written to.
/// @return empty, or the file's name and the system's reason. Thread safety: reentrant.
QString writeFile(const QString& path, const QByteArray& bytes);

} // namespace zrnhost
