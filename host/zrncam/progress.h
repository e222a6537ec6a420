#pragma once

#include <QElapsedTimer>
#include <QString>

/// One line on standard error that is rewritten in place, and only when that is a terminal.
class Progress
{
public:
    explicit Progress(bool quiet);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Shows @p text unless the line has just been rewritten.
    void show(const QString& text);

private:
    bool m_enabled;
    bool m_shown = false;
    QElapsedTimer m_sinceShown;
};
