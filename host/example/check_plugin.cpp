// Runs the contract's checks on a plugin and its first camera, and prints what they found. A start
// for the test suite of another plugin, or for a host's own acceptance test of the plugins that it
// loads.
//
//     check_plugin PLUGIN

#include "checks/contract_checks.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPluginLoader>
#include <QTextStream>

using ContractSpace::Account;
using ContractSpace::CheckRow;
using ContractSpace::CheckStatus;

namespace
{

QString rowText(const CheckRow& row)
{
    QString text = QStringLiteral("%1 %2: %3")
                       .arg(QLatin1String(statusName(row.status)), -13)
                       .arg(row.group, row.name);
    if (row.code) {
        text += QStringLiteral(", code %1").arg(static_cast<quint32>(*row.code));
    }
    if (row.expected) {
        text += QStringLiteral(", expected %1").arg(static_cast<quint32>(*row.expected));
    }
    return row.detail.isEmpty() ? text : text + QStringLiteral(" (%1)").arg(row.detail);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    if (argc != 2) {
        out << "usage: check_plugin PLUGIN\n";
        return 2;
    }
    QPluginLoader loader(QFileInfo(QString::fromLocal8Bit(argv[1])).absoluteFilePath());
    auto* factory = qobject_cast<IFactory*>(loader.instance());
    if (!factory) {
        out << "no driver plugin: " << loader.errorString() << '\n';
        return 2;
    }
    const Account account = ContractSpace::checkContract(*factory);
    for (const CheckRow& row : account.rows()) {
        out << rowText(row) << '\n';
    }
    const int failed = account.count(CheckStatus::Failed);
    out << account.count(CheckStatus::Passed) << " passed, " << failed << " failed, "
        << account.count(CheckStatus::NotSupported) << " not supported\n";
    return failed == 0 ? 0 : 1;
}
