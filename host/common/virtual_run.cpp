#include "common/virtual_run.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace zrnhost
{
namespace
{

/// Marks the process that runs on virtual cameras, which sees the same --virtual as this one.
constexpr const char* marker = "ZRNCAM_ON_VIRTUAL_CAMERAS";

constexpr const char* defaultModel = "type0";

/// zrnsim beside this program, or the one on PATH.
QString findSimulator()
{
    const QString beside = QCoreApplication::applicationDirPath() + QLatin1String("/zrnsim");
    return QFileInfo(beside).isExecutable()
               ? beside
               : QStandardPaths::findExecutable(QStringLiteral("zrnsim"));
}

/// Starts the cameras for a moment: once they run for good, nobody here can tell what went wrong.
/// @param words the command line up to the command @throws VirtualRunError
void tryCameras(const std::vector<std::string>& words)
{
    constexpr int wrongModel = 2; // exit code of zrnsim
    QStringList arguments;
    for (const std::string& word : words) {
        arguments += QString::fromLocal8Bit(word.c_str());
    }
    const QString program = arguments.takeFirst();
    QProcess trial;
    trial.start(program, arguments + QStringList{QStringLiteral("true")});
    const bool hasEnded = trial.waitForFinished();
    if (hasEnded && trial.exitStatus() == QProcess::NormalExit && trial.exitCode() == 0) {
        return;
    }
    const bool isWrongModel = trial.exitCode() == wrongModel;
    QString reason = QString::fromLocal8Bit(trial.readAllStandardError()).trimmed();
    reason.remove(QRegularExpression(QStringLiteral("^zrnsim: ")));
    throw VirtualRunError(reason.isEmpty() ? trial.errorString() : reason,
                          isWrongModel
                              ? QStringLiteral("'zrnsim --list-models' shows the models, 'zrnsim "
                                               "--help' what can be set with them")
                              : QString(),
                          isWrongModel);
}

} // namespace

QStringList virtualModels()
{
    const QString program = findSimulator();
    if (program.isEmpty()) {
        return {};
    }
    QProcess simulator;
    simulator.start(program, {QStringLiteral("--list-models")});
    simulator.waitForFinished();
    return QString::fromUtf8(simulator.readAllStandardOutput())
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool onVirtualCameras()
{
    return qEnvironmentVariableIsSet(marker);
}

void runOnVirtualCameras(const std::vector<std::string>& models,
                         const std::vector<std::string>& arguments)
{
    const std::string simulator = findSimulator().toLocal8Bit().toStdString();
    if (simulator.empty()) {
        throw VirtualRunError(QStringLiteral("zrnsim was not found"),
                              QStringLiteral("build the virtual camera, or put zrnsim on PATH"));
    }
    std::vector<std::string> words{simulator};
    for (const std::string& model : models) {
        words.insert(words.end(), {"--camera", model.empty() ? defaultModel : model});
    }
    words.emplace_back("--");
    tryCameras(words);
    words.push_back(QCoreApplication::applicationFilePath().toLocal8Bit().toStdString());
    words.insert(words.end(), arguments.begin() + 1, arguments.end());

    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    qputenv(marker, "1");
    ::execv(simulator.c_str(), pointers.data());
    throw VirtualRunError(QStringLiteral("%1 cannot be run: %2")
                              .arg(QString::fromLocal8Bit(simulator.c_str()),
                                   QString::fromLocal8Bit(std::strerror(errno))),
                          QString());
}

} // namespace zrnhost
