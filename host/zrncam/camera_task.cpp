#include "camera_task.h"

#include "failures.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace
{

/// What one of several cameras brought.
struct Outcome {
    QString name;
    ExitCode exitCode = ExitCode::Success;
    QJsonObject json;
    QString lines;
};

QString nameOf(const zrn::CameraChoice& choice)
{
    return !choice.serial.empty() ? QString::fromStdString(choice.serial)
           : !choice.port.empty() ? QString::fromStdString(choice.port)
                                  : QString::number(choice.index);
}

Outcome runOn(Session& session, const zrn::CameraChoice& choice, Context& context,
              const CameraTask& task)
{
    Outcome outcome;
    outcome.name = nameOf(choice);
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* const lines = ::open_memstream(&text, &length);
    if (!lines) {
        outcome.exitCode = ExitCode::Failure;
        return outcome;
    }
    Report report(context.options.json, lines, outcome.name);
    Context own{context.options, report, context.interrupt, nullptr, outcome.name};
    outcome.exitCode =
        reportFailures(report, [&] { return task.run(session.connect(choice), own); });
    outcome.json = report.json();
    outcome.json[QLatin1String("exitCode")] = static_cast<int>(outcome.exitCode);
    std::fclose(lines);
    outcome.lines = QString::fromLocal8Bit(text, static_cast<int>(length)).trimmed();
    std::free(text);
    return outcome;
}

QString rowOf(const Outcome& outcome, const CameraTask& task)
{
    const QString name = outcome.name.leftJustified(24);
    const QJsonValue error = outcome.json[QLatin1String("error")];
    if (error.isObject()) {
        return name + error[QLatin1String("message")].toString();
    }
    const QString serial =
        outcome.json[QLatin1String("camera")][QLatin1String("serial")].toString();
    return name + (serial == outcome.name ? QString() : serial + QStringLiteral(": ")) +
           (task.row ? task.row(outcome.json) : QStringLiteral("done"));
}

QString sumOf(const std::vector<QJsonObject>& done, const CameraTask& task)
{
    const QString more = task.sum ? task.sum(done) : QString();
    return QStringLiteral("sum").leftJustified(24) +
           (done.size() == 1 ? QStringLiteral("1 camera")
                             : QStringLiteral("%1 cameras").arg(done.size())) +
           (more.isEmpty() ? more : QStringLiteral(", ") + more);
}

} // namespace

ExitCode runOnCameras(Context& context, const CameraTask& task)
{
    Session session(context.options);
    if (!context.options.areSeveral()) {
        return task.run(session.connect(), context);
    }
    const std::vector<zrn::CameraChoice> choices = session.choices();
    std::vector<Outcome> outcomes(choices.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        threads.emplace_back([&, i] { outcomes[i] = runOn(session, choices[i], context, task); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    ExitCode exitCode = ExitCode::Success;
    QJsonArray list;
    std::vector<QJsonObject> done;
    for (const Outcome& outcome : outcomes) {
        if (task.showsLines && !outcome.lines.isEmpty()) {
            context.report.line(outcome.lines);
        }
        list.append(outcome.json);
        if (!outcome.json.contains(QLatin1String("error"))) {
            done.push_back(outcome.json);
        }
        exitCode = exitCode == ExitCode::Success ? outcome.exitCode : exitCode;
    }
    for (const Outcome& outcome : outcomes) {
        context.report.line(rowOf(outcome, task));
    }
    context.report.line(sumOf(done, task));
    context.report.setList(list);
    return exitCode;
}
