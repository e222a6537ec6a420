#include "common/property_keys.h"
#include "common/result_codes.h"
#include "progress.h"
#include "session.h"
#include "tool_error.h"
#include "verify/compliance.h"
#include "verify/junit.h"

#include <QJsonArray>
#include <QSaveFile>

#include <memory>

namespace
{

struct VerifyOptions {
    std::string junitFile;
};

QString rowText(const CheckRow& row)
{
    const QString code = row.code ? QString::number(static_cast<quint32>(*row.code)) : QString();
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(QLatin1String(statusName(row.status)), -13)
        .arg(code, 5)
        .arg(row.group, -11)
        .arg(row.name, -44)
        .arg(row.detail)
        .trimmed();
}

QJsonObject rowJson(const CheckRow& row)
{
    QJsonObject json{
        {QStringLiteral("group"), row.group},
        {QStringLiteral("name"), row.name},
        {QStringLiteral("status"), QString::fromLatin1(statusName(row.status)).toLower()},
        {QStringLiteral("detail"), row.detail}};
    if (row.code) {
        json[QLatin1String("code")] = static_cast<qint64>(*row.code);
    }
    return json;
}

void writeJunit(const QString& path, const Compliance& compliance, const QString& serial)
{
    QSaveFile file(path);
    const QByteArray document = junitReport(compliance, serial);
    if (!file.open(QIODevice::WriteOnly) || file.write(document) != document.size() ||
        !file.commit()) {
        throw ToolError(ExitCode::Output, QStringLiteral("%1: %2").arg(path, file.errorString()));
    }
}

/// Runs the groups until the user has had enough.
void runChecks(Session& session, zrnhost::Camera& camera, const Interrupt& interrupt, bool quiet,
               Compliance& compliance)
{
    const std::function<void()> groups[] = {
        [&] { checkIdentity(camera, compliance); },
        [&] { checkExposure(camera, compliance); },
        [&] { checkGain(camera, compliance); },
        [&] { checkGeometry(camera, compliance); },
        [&] { checkProperties(camera, compliance); },
        [&] { checkStream(camera, compliance); },
        [&] { checkLifecycle(session.factory(), camera, compliance); },
        // Last, since the reset leaves the camera with settings of its own.
        [&] { checkCommands(camera, compliance); },
    };
    Progress progress(quiet);
    for (const auto& group : groups) {
        progress.show(QStringLiteral("%1 checks").arg(compliance.rows().size()));
        if (interrupt.requested()) {
            return;
        }
        group();
    }
}

ExitCode runVerify(Context& context, const VerifyOptions& options)
{
    Session session(context.options);
    zrnhost::Camera& camera = session.connect();
    const QString serial = camera.property(zrnhost::keys::serial).toString();
    Compliance compliance;
    runChecks(session, camera, context.interrupt, context.options.quiet, compliance);

    Report& report = context.report;
    QJsonArray rows;
    for (const CheckRow& row : compliance.rows()) {
        report.line(rowText(row));
        rows.append(rowJson(row));
    }
    const int passed = compliance.count(CheckStatus::Passed);
    const int failed = compliance.count(CheckStatus::Failed);
    const int unsupported = compliance.count(CheckStatus::NotSupported);
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
        writeJunit(QString::fromLocal8Bit(options.junitFile.c_str()), compliance, serial);
    }
    if (context.interrupt.requested()) {
        return ExitCode::Interrupted;
    }
    return failed > 0 ? ExitCode::ChecksFailed : ExitCode::Success;
}

} // namespace

Command addVerify(CLI::App& app)
{
    CLI::App* command =
        app.add_subcommand("verify", "Check that a camera and its driver keep the host contract");
    const auto options = std::make_shared<VerifyOptions>();
    command->add_option("--junit", options->junitFile, "Write the result as a JUnit report, too")
        ->type_name("FILE");
    return {command, [options](Context& context) { return runVerify(context, *options); }};
}
