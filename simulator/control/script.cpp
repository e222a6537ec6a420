#include "control/script.h"

#include "control/command_fields.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <glib.h>
#include <iostream>

namespace zrnsim
{

using nlohmann::json;

namespace
{

struct PlannedStep {
    CommandProcessor* processor;
    std::string request;
};

gboolean runStep(gpointer data)
{
    const auto& step = *static_cast<PlannedStep*>(data);
    const json answer = json::parse(step.processor->executeLine(step.request));
    if (!answer.at("ok").get<bool>()) {
        std::cerr << "zrnsim: script: " << step.request << ": "
                  << answer.at("error").get<std::string>() << '\n';
    }
    return G_SOURCE_REMOVE;
}

void deleteStep(gpointer data)
{
    delete static_cast<PlannedStep*>(data);
}

} // namespace

std::vector<ScriptStep> readScript(const std::string& path, const CommandProcessor& processor)
{
    constexpr double latest = 1'000'000; // seconds, eleven days
    std::ifstream file(path);
    std::vector<ScriptStep> steps;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const auto refuse = [&](const std::string& reason) {
            throw ConfigError(path + ":" + std::to_string(number) + ": " + reason);
        };
        json request = json::parse(line, nullptr, false);
        if (!request.is_object() || !request.contains("at")) {
            refuse("not a JSON object with \"at\" and \"command\"");
        }
        const json at = request["at"];
        if (!at.is_number() || at < 0 || at > latest) {
            refuse("at: " + at.dump() + " is not a number of seconds from 0 to 1000000");
        }
        request.erase("at");
        try {
            processor.check(request);
        } catch (const CommandError& error) {
            refuse(error.what());
        }
        steps.push_back({at, request.dump()});
    }
    if (!file.eof() || file.bad()) {
        throw ConfigError("cannot read the script " + path);
    }
    return steps;
}

void scheduleScript(const std::vector<ScriptStep>& steps, CommandProcessor& processor)
{
    for (const ScriptStep& step : steps) {
        const auto milliseconds = static_cast<guint>(step.at * 1000);
        g_timeout_add_full(G_PRIORITY_DEFAULT, milliseconds, runStep,
                           new PlannedStep{&processor, step.request}, deleteStep);
    }
}

} // namespace zrnsim
