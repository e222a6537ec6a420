#include "zrnview/screen_search.h"

#include <QString>
#include <QStringList>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace zrnview
{
namespace
{

QStringList warnings; // since the search began

void note(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtFatalMsg) {
        warnings += message;
        return;
    }
    // The warnings name the screen that was tried, the fatal message only tells to install Qt anew.
    const QString reason = (warnings.isEmpty() ? message : warnings.last()).trimmed();
    std::fprintf(stderr,
                 "zrnview: there is no screen to show a window on: %s\n"
                 "start it in a desktop session, or with 'ssh -X' from another machine; 'zrncam' "
                 "needs no screen\n",
                 qUtf8Printable(reason.section(QLatin1Char('\n'), 0, 0)));
    std::_Exit(EXIT_FAILURE);
}

} // namespace

ScreenSearch::ScreenSearch()
    : m_before(qInstallMessageHandler(note))
{
}

ScreenSearch::~ScreenSearch()
{
    qInstallMessageHandler(m_before);
    for (const QString& warning : std::as_const(warnings)) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(warning));
    }
    warnings.clear();
}

} // namespace zrnview
