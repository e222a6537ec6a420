#include "completion.h"

#include "client/bus.h"
#include "client/property_table.h"
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
struct ReadWords {
    const CommandDescription* program;
    const CommandDescription* command; ///< the program before a subcommand is named
    const ArgumentDescription* option =
        nullptr; ///< takes the next word as its value, or may take it
    std::vector<std::string> positionals;
};

bool isOption(std::string_view word)
{
    return word.size() > 1 && word.front() == '-';
}

bool needsValue(const ArgumentDescription& option)
{
    return option.fewestValues > 0;
}

/// Options of subcommands are those of the program as well.
const ArgumentDescription* findOption(const ReadWords& line, const std::string& name)
{
    for (const CommandDescription* level : {line.command, line.program}) {
        const auto found = std::ranges::find_if(level->arguments, [&name](const auto& option) {
            return std::ranges::find(option.names, name) != option.names.end();
        });
        if (found != level->arguments.end()) {
            return &*found;
        }
    }
    return nullptr;
}

const CommandDescription* findSubcommand(const CommandDescription& command, const std::string& name)
{
    const auto found = std::ranges::find(command.subcommands, name, &CommandDescription::name);
    return found == command.subcommands.end() ? nullptr : &*found;
}

ReadWords readWords(const CommandDescription& program, std::span<const std::string> words)
{
    ReadWords line{&program, &program, nullptr, {}};
    for (const std::string& word : words) {
        const ArgumentDescription* taker = std::exchange(line.option, nullptr);
        const CommandDescription* subcommand = findSubcommand(*line.command, word);
        if (taker && (needsValue(*taker) || (!isOption(word) && !subcommand))) {
            continue;
        }
        if (isOption(word)) {
            const ArgumentDescription* option = findOption(line, word);
            line.option = option && option->mostValues > 0 ? option : nullptr;
        } else if (subcommand) {
            line.command = subcommand;
        } else {
            line.positionals.push_back(word);
        }
    }
    return line;
}

Offers offerKeys(bool onlyWritable)
{
    Offers offers;
    for (const zrn::PropertyInfo& property : zrn::propertyTable) {
        if (property.writable || !onlyWritable) {
            offers.push_back({property.key, property.tip});
        }
    }
    return offers;
}

Offers offerValues(const std::string& key)
{
    const zrn::PropertyInfo* property = zrn::findProperty(key);
    const bool isFlag = property && property->type == zrn::PropertyType::Bool;
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
Offers offerValues(const ReadWords& line, const ArgumentDescription& argument)
{
    const std::string& type = argument.valueName;
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
        return offerKeys(line.command->name == "set");
    }
    if (type == "VALUE" && !line.positionals.empty()) {
        return offerValues(line.positionals.front());
    }
    if (type == "ACTION") {
        return {{"save", "Write the settings to a file"}, {"load", "Set the camera as in a file"}};
    }
    if (type == "COMMAND") {
        return {{zrn::keys::clearState, "Reset the camera"}};
    }
    return {};
}

Offers offerOptions(const ReadWords& line)
{
    Offers offers;
    const auto add = [&offers](const CommandDescription& command, bool withHelp) {
        for (const ArgumentDescription& option : command.arguments) {
            for (const std::string& name : option.names) {
                if (name.starts_with("--") && (withHelp || name != "--help")) {
                    offers.push_back({name, option.description});
                }
            }
        }
    };
    add(*line.command, true);
    if (line.command != line.program) {
        add(*line.program, false); // every subcommand has a --help of its own
    }
    return offers;
}

Offers offerSubcommands(const CommandDescription& command)
{
    Offers offers;
    for (const CommandDescription& subcommand : command.subcommands) {
        offers.push_back({subcommand.name, subcommand.description});
    }
    return offers;
}

/// Subcommands, or the values of the argument that comes next.
Offers offerPlainWords(const ReadWords& line)
{
    Offers offers = offerSubcommands(*line.command);
    std::vector<const ArgumentDescription*> positionals;
    for (const ArgumentDescription& argument : line.command->arguments) {
        if (argument.isPositional) {
            positionals.push_back(&argument);
        }
    }
    if (line.positionals.size() < positionals.size()) {
        const Offers values = offerValues(line, *positionals[line.positionals.size()]);
        offers.insert(offers.end(), values.begin(), values.end());
    }
    return offers;
}

Offers offersFor(const ReadWords& line, const std::string& current)
{
    const std::size_t equals = current.find('=');
    if (isOption(current) && equals != std::string::npos) {
        const ArgumentDescription* option = findOption(line, current.substr(0, equals));
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
        isOption(current) || current == "-" ? offerOptions(line) : offerPlainWords(line);
    if (line.option) {
        const Offers values = offerValues(line, *line.option);
        offers.insert(offers.end(), values.begin(), values.end());
    }
    return offers;
}

} // namespace

std::vector<std::string> completionsFor(const CommandDescription& program,
                                        const std::vector<std::string>& words)
{
    if (words.empty()) {
        return {};
    }
    const std::string& current = words.back();
    std::vector<std::string> lines;
    for (const Offer& offer :
         offersFor(readWords(program, std::span(words).first(words.size() - 1)), current)) {
        if (offer.word.front() == ':') {
            lines.push_back(offer.word);
        } else if (offer.word.starts_with(current)) {
            lines.push_back(offer.word + '\t' + offer.description);
        }
    }
    return lines;
}
