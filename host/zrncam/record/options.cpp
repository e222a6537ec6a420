#include "record/options.h"

#include "tool_error.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace
{

/// A number with a unit: bytes, or nanoseconds.
struct Amount {
    double number = 0;
    bool isTime = false;
};

struct AmountUnit {
    std::string_view name;
    double factor;
    bool isTime;
};
constexpr std::array amountUnits = {
    AmountUnit{"B", 1, false},        AmountUnit{"kB", 1e3, false},
    AmountUnit{"MB", 1e6, false},     AmountUnit{"GB", 1e9, false},
    AmountUnit{"TB", 1e12, false},    AmountUnit{"KiB", 1024, false},
    AmountUnit{"MiB", 0x1p20, false}, AmountUnit{"GiB", 0x1p30, false},
    AmountUnit{"ms", 1e6, true},      AmountUnit{"s", 1e9, true},
    AmountUnit{"min", 60e9, true},    AmountUnit{"h", 3600e9, true},
};

std::optional<Amount> amountIn(const std::string& text)
{
    constexpr double most = 1e18; // fits the integers that it goes to
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const std::string_view name(rest, static_cast<std::size_t>(end - rest));
    const auto unit = std::ranges::find(amountUnits, name, &AmountUnit::name);
    if (error != std::errc() || unit == amountUnits.end()) {
        return std::nullopt;
    }
    const Amount amount{std::floor(number * unit->factor), unit->isTime};
    return amount.number >= 1 && amount.number <= most ? std::optional(amount) : std::nullopt;
}

[[noreturn]] void refuse(const QString& message)
{
    throw ToolError(ExitCode::Usage, QStringLiteral("record: %1").arg(message),
                    QStringLiteral("'zrncam record --help' shows what it takes"));
}

std::chrono::nanoseconds nanosecondsOf(double seconds)
{
    return std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
}

} // namespace

zrn::RecordingPlan planOf(const RecordOptions& options)
{
    zrn::RecordingPlan plan;
    plan.folder = options.folder;
    plan.name = options.name;
    if (options.folder == "-") {
        refuse(QStringLiteral("a recording goes to files, not to a pipe"));
    }
    if (options.name.empty() || options.name.find('/') != std::string::npos) {
        refuse(QStringLiteral("--name: \"%1\" is no name of files")
                   .arg(QString::fromLocal8Bit(options.name.c_str())));
    }
    plan.waitsForTrigger = options.before.has_value();
    plan.before = nanosecondsOf(options.before.value_or(0));
    if (!plan.waitsForTrigger && options.sets > 0) {
        refuse(QStringLiteral("--triggers is for recordings with --before"));
    }
    if (!plan.waitsForTrigger && (options.seconds == 0.0 || options.frames == 0)) {
        refuse(QStringLiteral("nothing is to be recorded"));
    }
    plan.mostSets = static_cast<std::uint64_t>(options.sets);
    if (options.seconds) {
        plan.duration = nanosecondsOf(*options.seconds);
    }
    if (options.frames) {
        plan.frames = static_cast<std::uint64_t>(*options.frames);
    }
    if (!options.segment.empty()) {
        const std::optional<Amount> amount = amountIn(options.segment);
        if (!amount) {
            refuse(QStringLiteral("--segment: \"%1\" is neither a size, as in 1GB, nor a time, as "
                                  "in 10min")
                       .arg(QString::fromLocal8Bit(options.segment.c_str())));
        }
        plan.segmentBytes = amount->isTime ? 0 : static_cast<std::uint64_t>(amount->number);
        plan.segmentDuration = std::chrono::nanoseconds(
            amount->isTime ? static_cast<std::int64_t>(amount->number) : 0);
    }
    constexpr std::uint64_t enoughBeforeTriggers = 1'000'000'000;
    plan.memoryBytes = plan.waitsForTrigger ? enoughBeforeTriggers : plan.memoryBytes;
    if (!options.memory.empty()) {
        const std::optional<Amount> amount = amountIn(options.memory);
        if (!amount || amount->isTime) {
            refuse(QStringLiteral("--memory: \"%1\" is no size, as in 2GB")
                       .arg(QString::fromLocal8Bit(options.memory.c_str())));
        }
        plan.memoryBytes = static_cast<std::uint64_t>(amount->number);
    }
    return plan;
}

void addRecordOptions(CLI::App& command, RecordOptions& options)
{
    addArgument(command, "-o,--output", options.folder, "Folder for the files, made if missing",
                {.valueName = "DIR", .showsDefault = true});
    addArgument(command, "--name", options.name,
                "What the files' names begin with: NAME_0001.json, NAME_0001_SERIAL.zrnrec",
                {.valueName = "NAME", .showsDefault = true});
    addArgument(command, "--seconds", options.seconds,
                "How long: seconds, or with a unit, as in 10min (default: until Ctrl-C)",
                {.valueName = "TIME", .unit = Unit::Seconds, .range = std::pair(0.0, 1e9)});
    addArgument(command, "-n,--frames", options.frames,
                "How many frames of each camera (default: until Ctrl-C)",
                {.valueName = "N", .range = std::pair(0, std::numeric_limits<int>::max())});
    addArgument(command, "--segment", options.segment,
                "Begin another file after so much: a size, as in 1GB, or a time, as in 10min",
                {.valueName = "SIZE|TIME"});
    addArgument(
        command, "--before", options.before,
        "Wait for triggers (a line on standard input, or SIGUSR1) and record so much before "
        "each, from memory; --seconds and --frames count from the trigger on",
        {.valueName = "TIME", .unit = Unit::Seconds, .range = std::pair(0.0, 1e6)});
    addArgument(command, "--triggers", options.sets,
                "With --before: end after so many recordings (default: at Ctrl-C)",
                {.valueName = "N", .range = std::pair(1, std::numeric_limits<int>::max())});
    addArgument(command, "--memory", options.memory,
                "Memory of each camera for frames that wait for a trigger or for the disk "
                "(default: 256MiB; 1GB with --before)",
                {.valueName = "SIZE"});
    addSettingOptions(command, options.capture);
}
