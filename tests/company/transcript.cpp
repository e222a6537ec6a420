#include "transcript.h"

#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace company
{

Transcript collect(const std::function<void(TellStep, void*)>& use)
{
    Transcript transcript;
    use(
        [](void* context, const char* step, const char* outcome, double milliseconds) {
            static_cast<Transcript*>(context)->push_back({step, outcome, milliseconds});
        },
        &transcript);
    return transcript;
}

AloneProcess::AloneProcess()
{
    int commands[2];
    int answers[2];
    if (pipe(commands) != 0 || pipe(answers) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, commands[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, answers[1], STDOUT_FILENO);
    for (const int fd : {commands[0], commands[1], answers[0], answers[1]}) {
        posix_spawn_file_actions_addclose(&actions, fd);
    }
    std::string path = ZRN_ALONE_WITH_USB;
    char* arguments[]{path.data(), nullptr};
    const int error = posix_spawn(&m_process, path.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(commands[0]);
    close(answers[1]);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), path);
    }
    m_commands = fdopen(commands[1], "w");
    m_answers = fdopen(answers[0], "r");
}

AloneProcess::~AloneProcess()
{
    std::fclose(m_commands);
    std::fclose(m_answers);
    waitpid(m_process, nullptr, 0);
}

Transcript AloneProcess::run(const std::string& name)
{
    std::fprintf(m_commands, "%s\n", name.c_str());
    std::fflush(m_commands);
    Transcript transcript;
    char* line = nullptr;
    std::size_t size = 0;
    const auto next = [&] {
        const ssize_t length = getline(&line, &size, m_answers);
        if (length <= 0) {
            throw std::runtime_error("the process without the driver has ended");
        }
        return std::string(line, static_cast<std::size_t>(length - 1));
    };
    for (std::string text = next(); text != "."; text = next()) {
        const std::size_t first = text.find('\t');
        const std::size_t second = text.find('\t', first + 1);
        transcript.push_back({text.substr(0, first), text.substr(first + 1, second - first - 1),
                              std::stod(text.substr(second + 1))});
    }
    std::free(line);
    return transcript;
}

} // namespace company
