#include "client/doctor.h"

#include "session.h"
#include "tool_error.h"

#include <QDir>
#include <QJsonArray>

#include <algorithm>
#include <memory>

namespace
{

struct DoctorOptions {
    std::string root;
};

ExitCode runDoctor(Context& context, const DoctorOptions& options)
{
    const QString root = QString::fromLocal8Bit(options.root.c_str());
    if (!root.isEmpty() && !QDir(root).exists()) {
        throw ToolError(ExitCode::Usage, QStringLiteral("there is no folder %1").arg(root));
    }
    const std::vector<zrn::Finding> findings = zrn::examine(context.options.plugin, options.root);
    QJsonArray list;
    for (const zrn::Finding& finding : findings) {
        const QString subject = QString::fromStdString(finding.subject);
        const QString verdict = QLatin1String(zrn::verdictName(finding.verdict));
        const QString message = QString::fromStdString(finding.message);
        QString remedy = QString::fromStdString(finding.remedy);
        list.append(QJsonObject{{QStringLiteral("subject"), subject},
                                {QStringLiteral("verdict"), verdict},
                                {QStringLiteral("message"), message},
                                {QStringLiteral("remedy"), remedy}});
        context.report.line(QStringLiteral("%1 %2 %3")
                                .arg(QStringLiteral("[%1]").arg(verdict), -10)
                                .arg(subject, -14)
                                .arg(message));
        if (!remedy.isEmpty()) {
            const QString indent = QStringLiteral("\n") + QString(15, QLatin1Char(' '));
            context.report.line(indent.mid(1) + remedy.replace(QLatin1Char('\n'), indent));
        }
    }
    context.report.json()[QLatin1String("findings")] = list;
    const bool healthy =
        std::none_of(findings.begin(), findings.end(), [](const zrn::Finding& finding) {
            return finding.verdict == zrn::Verdict::Problem;
        });
    return healthy ? ExitCode::Success : ExitCode::ChecksFailed;
}

} // namespace

Command addDoctor(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "doctor", "Find out why a camera cannot be used", "doctor --json");
    const auto options = std::make_shared<DoctorOptions>();
    addArgument(command, "--root", options->root, "Judge the system files under DIR instead of /",
                {.valueName = "DIR"});
    return {&command, [options](Context& context) { return runDoctor(context, *options); }};
}
