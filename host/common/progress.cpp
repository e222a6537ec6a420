#include "common/progress.h"

#include <cstdio>
#include <unistd.h>

namespace zrnhost
{
namespace
{

constexpr qint64 rewriteMilliseconds = 100;
constexpr const char* clearLine = "\r\x1b[K";

} // namespace

Progress::Progress(bool quiet, QString name)
    : m_quiet(quiet)
    , m_name(std::move(name))
    , m_rewrites(!quiet && m_name.isEmpty() && ::isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    clear();
}

void Progress::show(const QString& text)
{
    if (!m_rewrites || (m_shown && m_sinceShown.elapsed() < rewriteMilliseconds)) {
        return;
    }
    std::fprintf(stderr, "%s%s", clearLine, text.toLocal8Bit().constData());
    std::fflush(stderr);
    m_shown = true;
    m_sinceShown.start();
}

void Progress::note(const QString& text)
{
    if (m_quiet) {
        return;
    }
    clear();
    const QString name = m_name.isEmpty() ? m_name : m_name + QStringLiteral(": ");
    std::fprintf(stderr, "%s\n", (name + text).toLocal8Bit().constData());
}

void Progress::clear()
{
    if (m_shown) {
        std::fputs(clearLine, stderr);
        m_shown = false;
    }
}

} // namespace zrnhost
