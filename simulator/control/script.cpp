#include "control/script.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <glib.h>
#include <iostream>
#include <stdexcept>

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

std::vector<ScriptStep> readScript(const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read the script " + path);
    }
    std::vector<ScriptStep> steps;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.empty() || line.front() == '#') {
            continue;
        }
        json request = json::parse(line, nullptr, false);
        if (!request.is_object() || !request.contains("command") || !request.contains("at") ||
            !request["at"].is_number() || request["at"].get<double>() < 0) {
            throw std::runtime_error(path + ":" + std::to_string(number) +
                                     ": not a JSON object with \"at\" and \"command\"");
        }
        const double at = request["at"];
        request.erase("at");
        steps.push_back({at, request.dump()});
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
