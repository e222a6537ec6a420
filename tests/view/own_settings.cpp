// Keeps what the viewer remembers out of the tester's own files.

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>

namespace
{

class OwnSettings
{
public:
    OwnSettings()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_folder.path());
        QCoreApplication::setOrganizationName(QStringLiteral("zrncamera"));
        QCoreApplication::setApplicationName(QStringLiteral("zrnview-test"));
    }

private:
    const QTemporaryDir m_folder;
};

const OwnSettings ownSettings;

} // namespace
