#include "completion.h"

#include "client/bus.h"
#include "common/property_table.h"
#include "common/virtual_run.h"

#include <QString>

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

namespace
{

struct Offer {
    std::string word;
    std::string description;
};
using Offers = std::vector<Offer>;

/// The words before the one to complete, as far as they decide about it.
struct CommandLine {
    const CLI::App* app;                 ///< the subcommand, or the program before it is named
    const CLI::Option* option = nullptr; ///< takes the next word as its value, or may take it
    std::vector<std::string> positionals;
};

bool isOption(std::string_view word)
{
    return word.size() > 1 && word.front() == '-';
}

bool needsValue(const CLI::Option& option)
{
    return option.get_items_expected_min() > 0;
}

/// Options of subcommands are those of the program as well.
const CLI::Option* findOption(const CLI::App& app, const std::string& name)
{
    const CLI::Option* option = app.get_option_no_throw(name);
    return !option && app.get_parent() ? app.get_parent()->get_option_no_throw(name) : option;
}

const CLI::App* findSubcommand(const CLI::App& app, const std::string& name)
{
    const auto all = app.get_subcommands({});
    const auto found = std::ranges::find(all, name, &CLI::App::get_name);
    return found == all.end() ? nullptr : *found;
}

CommandLine readLine(const CLI::App& program, std::span<const std::string> words)
{
    CommandLine line{&program, nullptr, {}};
    for (const std::string& word : words) {
        const CLI::Option* taker = std::exchange(line.option, nullptr);
        const CLI::App* subcommand = findSubcommand(*line.app, word);
        if (taker && (needsValue(*taker) || (!isOption(word) && !subcommand))) {
            continue;
        }
        if (isOption(word)) {
            const CLI::Option* option = findOption(*line.app, word);
            line.option = option && option->get_items_expected_max() > 0 ? option : nullptr;
        } else if (subcommand) {
            line.app = subcommand;
        } else {
            line.positionals.push_back(word);
        }
    }
    return line;
}

Offers offerKeys(bool onlyWritable)
{
    Offers offers;
    for (const zrnhost::PropertyInfo& property : zrnhost::propertyTable) {
        if (property.writable || !onlyWritable) {
            offers.push_back({property.key, property.tip});
        }
    }
    return offers;
}

Offers offerValues(const std::string& key)
{
    const zrnhost::PropertyInfo* property = zrnhost::findProperty(key);
    const bool isFlag = property && property->type == zrnhost::PropertyType::Bool;
    return isFlag ? Offers{{"true", ""}, {"false", ""}} : Offers{};
}

Offers offerModels()
{
    Offers offers;
    for (const QString& line : zrnhost::virtualModels()) {
        offers.push_back({line.section(QLatin1Char(' '), 0, 0).toStdString(),
                          line.section(QLatin1Char(' '), 1).trimmed().toStdString()});
    }
    return offers;
}

/// Serials that have been seen since their cameras were plugged in.
Offers offerSerials()
{
    Offers offers;
    for (const zrn::BusCamera& camera : zrn::Bus().cameras()) {
        if (!camera.serial.empty()) {
            offers.push_back({camera.serial, "at port " + camera.port});
        }
    }
    return offers;
}

Offers offerPorts()
{
    Offers offers;
    for (const zrn::BusCamera& camera : zrn::Bus().cameras()) {
        offers.push_back({camera.port, camera.serial});
    }
    return offers;
}

/// Values of an option, by the name of their type, or of an argument, by its own name.
Offers offerValues(const CommandLine& line, const CLI::Option& option)
{
    const std::string type =
        option.get_positional() ? option.get_single_name() : option.get_type_name();
    if (type == "FILE") {
        return {{":files", ""}};
    }
    if (type == "DIR") {
        return {{":folders", ""}};
    }
    if (type == "[MODEL]") {
        return offerModels();
    }
    if (type == "SERIAL") {
        return offerSerials();
    }
    if (type == "PORT") {
        return offerPorts();
    }
    if (type == "KEY") {
        return offerKeys(line.app->get_name() == "set");
    }
    if (type == "VALUE" && !line.positionals.empty()) {
        return offerValues(line.positionals.front());
    }
    if (type == "COMMAND") {
        return {{zrnhost::keys::clearState, "Reset the camera"}};
    }
    return {};
}

Offers offerOptions(const CLI::App& app)
{
    Offers offers;
    for (const CLI::App* level = &app; level; level = level->get_parent()) {
        for (const CLI::Option* option : level->get_options({})) {
            // Every subcommand has a --help of its own.
            for (const std::string& name : option->get_lnames()) {
                if (level == &app || name != "help") {
                    offers.push_back({"--" + name, option->get_description()});
                }
            }
        }
    }
    return offers;
}

Offers offerSubcommands(const CLI::App& app)
{
    Offers offers;
    for (const CLI::App* subcommand : app.get_subcommands({})) {
        offers.push_back({subcommand->get_name(), subcommand->get_description()});
    }
    return offers;
}

/// Subcommands, or the values of the argument that comes next.
Offers offerPlainWords(const CommandLine& line)
{
    Offers offers = offerSubcommands(*line.app);
    const auto arguments =
        line.app->get_options([](const CLI::Option* option) { return option->get_positional(); });
    if (line.positionals.size() < arguments.size()) {
        const Offers values = offerValues(line, *arguments[line.positionals.size()]);
        offers.insert(offers.end(), values.begin(), values.end());
    }
    return offers;
}

Offers offersFor(const CommandLine& line, const std::string& current)
{
    const std::size_t equals = current.find('=');
    if (isOption(current) && equals != std::string::npos) {
        const CLI::Option* option = findOption(*line.app, current.substr(0, equals));
        Offers offers = option ? offerValues(line, *option) : Offers{};
        for (Offer& offer : offers) {
            if (offer.word.front() != ':') {
                offer.word.insert(0, current, 0, equals + 1);
            }
        }
        return offers;
    }
    if (line.option && needsValue(*line.option)) {
        return offerValues(line, *line.option);
    }
    Offers offers =
        isOption(current) || current == "-" ? offerOptions(*line.app) : offerPlainWords(line);
    if (line.option) {
        const Offers values = offerValues(line, *line.option);
        offers.insert(offers.end(), values.begin(), values.end());
    }
    return offers;
}

} // namespace

std::vector<std::string> completionsFor(const CLI::App& app, const std::vector<std::string>& words)
{
    if (words.empty()) {
        return {};
    }
    const std::string& current = words.back();
    std::vector<std::string> lines;
    for (const Offer& offer :
         offersFor(readLine(app, std::span(words).first(words.size() - 1)), current)) {
        if (offer.word.front() == ':') {
            lines.push_back(offer.word);
        } else if (offer.word.starts_with(current)) {
            lines.push_back(offer.word + '\t' + offer.description);
        }
    }
    return lines;
}
