#include "control/control_client.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{

constexpr int exitRefused = 1;
constexpr int exitUsage = 2;

/// "key=value": the value is JSON where it can be read as such, else a text.
void addField(nlohmann::json& request, const std::string& field)
{
    const std::size_t equals = field.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw std::runtime_error("'" + field + "' is not of the form KEY=VALUE");
    }
    const std::string key = field.substr(0, equals);
    if (request.contains(key)) {
        throw std::runtime_error("'" + key + "' is given twice");
    }
    const std::string text = field.substr(equals + 1);
    const auto value = nlohmann::json::parse(text, nullptr, false);
    request[key] = value.is_discarded() ? nlohmann::json(text) : value;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Sends one command to the zrnsim that runs this process.", "zrnsim-ctl");
    app.set_version_flag("--version", "zrnsim-ctl " ZRN_VERSION);
    std::string command;
    std::vector<std::string> fields;
    std::string socketPath;
    app.add_option("--socket", socketPath, "Control socket")
        ->envname(zrnsim::controlVariable)
        ->required();
    app.add_option("command", command, "Command, for example counters")->required();
    app.add_option("fields", fields, "KEY=VALUE of the command, for example camera=1");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : exitUsage;
    }

    try {
        nlohmann::json request{{"command", command}};
        for (const std::string& field : fields) {
            addField(request, field);
        }
        const nlohmann::json answer = zrnsim::ControlClient(socketPath).call(request);
        std::cout << answer.dump(2) << '\n';
        return answer.value("ok", false) ? EXIT_SUCCESS : exitRefused;
    } catch (const nlohmann::json::type_error&) { // thrown by writing the request
        std::cerr << "zrnsim-ctl: the command is not in UTF-8\n";
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "zrnsim-ctl: " << error.what() << '\n';
        return exitUsage;
    }
}
