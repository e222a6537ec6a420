#pragma once

#include <QElapsedTimer>
#include <QString>

namespace zrnhost
{

/// What a running command tells on standard error, unless it is to be quiet.
class Progress
{
public:
    /// @param name of the camera, put before every note; with one, no line is rewritten in place
    explicit Progress(bool quiet, QString name = {});
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Shows @p text in a line that is rewritten in place, unless it has just been rewritten. Only
    /// on a terminal.
    void show(const QString& text);
    /// Writes @p text as a line that stays.
    void note(const QString& text);

private:
    void clear();

    bool m_quiet;
    const QString m_name;
    bool m_rewrites;
    bool m_shown = false;
    QElapsedTimer m_sinceShown;
};

} // namespace zrnhost
