#include "checks/contract_checks.h"
#include "client/camera_object.h"
#include "client/property_keys.h"
#include "common/interrupt.h"
#include "common/progress.h"
#include "session.h"
#include "tool_error.h"
#include "verify/driver_checks.h"
#include "verify/junit.h"
#include "verify/row_text.h"

#include <QJsonArray>

#include <functional>
#include <memory>

using ContractSpace::Account;
using ContractSpace::CheckRow;
using ContractSpace::CheckStatus;

namespace
{

struct VerifyOptions {
    std::string junitFile;
};

QString rowText(const CheckRow& row)
{
    const QString code = row.code ? QString::number(static_cast<quint32>(*row.code)) : QString();
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(QLatin1String(ContractSpace::statusName(row.status)), -13)
        .arg(code, 5)
        .arg(row.group, -11)
        .arg(row.name, -44)
        .arg(rowDetail(row))
        .trimmed();
}

QJsonObject rowJson(const CheckRow& row)
{
    QJsonObject json{{QStringLiteral("group"), row.group},
                     {QStringLiteral("name"), row.name},
                     {QStringLiteral("status"),
                      QString::fromLatin1(ContractSpace::statusName(row.status)).toLower()},
                     {QStringLiteral("detail"), rowDetail(row)}};
    if (row.code) {
        json[QLatin1String("code")] = static_cast<qint64>(*row.code);
    }
    return json;
}

/// Runs the groups until the user has had enough.
void runChecks(IFactory& factory, zrn::CameraObject& camera, const zrnhost::Interrupt& interrupt,
               bool quiet, Account& account)
{
    const std::function<void()> groups[] = {
        [&] { ContractSpace::checkIdentity(*camera, account); },
        [&] { checkSerial(camera, account); },
        [&] { ContractSpace::checkExposure(*camera, account); },
        [&] { ContractSpace::checkGain(*camera, account); },
        [&] { ContractSpace::checkGeometry(*camera, account); },
        [&] { ContractSpace::checkUnknownKeys(*camera, account); },
        [&] { checkProperties(camera, account); },
        [&] { ContractSpace::checkStream(*camera, account); },
        [&] { checkFrames(camera, account); },
        [&] { ContractSpace::checkConnection(factory, *camera, account); },
        // Last, since the reset leaves the camera with settings of its own.
        [&] { checkReset(camera, account); },
    };
    zrnhost::Progress progress(quiet);
    for (const auto& group : groups) {
        progress.show(QStringLiteral("%1 checks").arg(account.rows().size()));
        if (interrupt.requested()) {
            return;
        }
        group();
    }
}

ExitCode runVerify(Context& context, const VerifyOptions& options)
{
    const CameraPointer camera = Session(context.options).connect();
    const QString serial = QString::fromStdString(camera->facts().serial);
    Account account;
    runChecks(camera->driver().factory(), camera->object(), context.interrupt,
              context.options.quiet, account);

    Report& report = context.report;
    QJsonArray rows;
    for (const CheckRow& row : account.rows()) {
        report.line(rowText(row));
        rows.append(rowJson(row));
    }
    const int passed = account.count(CheckStatus::Passed);
    const int failed = account.count(CheckStatus::Failed);
    const int unsupported = account.count(CheckStatus::NotSupported);
    report.line(QStringLiteral("%1: %2 passed, %3 failed, %4 not supported")
                    .arg(serial)
                    .arg(passed)
                    .arg(failed)
                    .arg(unsupported));
    report.json() = {{QStringLiteral("serial"), serial},
                     {QStringLiteral("passed"), passed},
                     {QStringLiteral("failed"), failed},
                     {QStringLiteral("notSupported"), unsupported},
                     {QStringLiteral("checks"), rows}};
    if (!options.junitFile.empty()) {
        writeResult(context.standardOutput, QString::fromLocal8Bit(options.junitFile.c_str()),
                    junitReport(account, serial));
    }
    if (context.interrupt.requested()) {
        return ExitCode::Interrupted;
    }
    return failed > 0 ? ExitCode::ChecksFailed : ExitCode::Success;
}

} // namespace

Command addVerify(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "verify", "Check that a camera and its driver keep the host contract",
                      "verify --serial ZR4711 --junit report.xml");
    const auto options = std::make_shared<VerifyOptions>();
    addArgument(command, "--junit", options->junitFile,
                "Write the result as a JUnit report, too; -: to standard output",
                {.valueName = "FILE"});
    return {&command, [options](Context& context) { return runVerify(context, *options); }, false,
            [options] { return options->junitFile; }};
}
