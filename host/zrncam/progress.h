#pragma once

#include <QElapsedTimer>
#include <QString>

/// What a running command tells on standard error, unless it is to be quiet.
class Progress
{
public:
    explicit Progress(bool quiet);
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
    bool m_rewrites;
    bool m_shown = false;
    QElapsedTimer m_sinceShown;
};
