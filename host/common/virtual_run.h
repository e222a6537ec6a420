#pragma once

#include <QString>
#include <QStringList>

#include <stdexcept>
#include <string>
#include <vector>

namespace zrnhost
{

/// The program cannot be run on virtual cameras.
class VirtualRunError : public std::runtime_error
{
public:
    VirtualRunError(const QString& message, QString hint, bool isWrongModel = false)
        : std::runtime_error(message.toStdString())
        , m_hint(std::move(hint))
        , m_isWrongModel(isWrongModel)
    {
    }

    /// What the user can do about it; may be empty.
    const QString& hint() const { return m_hint; }
    /// Whether the models that were asked for are the cause.
    bool isWrongModel() const { return m_isWrongModel; }

private:
    QString m_hint;
    bool m_isWrongModel;
};

/// The models of virtual cameras, each with a line about it behind its name. Empty without zrnsim.
QStringList virtualModels();

/// Whether this process was started by runOnVirtualCameras().
bool onVirtualCameras();

/// Replaces this process by zrnsim, which runs the same command line on virtual cameras.
///
/// @param models one for each camera, as zrnsim's --camera takes them; an empty text is the default
/// model. @param arguments this process's own, program name included.
/// @throws VirtualRunError when zrnsim cannot be run, or not with these models: it is tried first
[[noreturn]] void runOnVirtualCameras(const std::vector<std::string>& models,
                                      const std::vector<std::string>& arguments);

} // namespace zrnhost
