#include "recording/pairing.h"

#include "client/error.h"
#include "client/recording.h"
#include "common/date_text.h"
#include "recording/frame_facts.h"
#include "recording/target_file.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <optional>
#include <set>
#include <utility>

namespace zrnrec
{
namespace
{

using zrn::Error;
using zrn::Recording;

constexpr double nanosecondsPerMillisecond = 1e6;
constexpr double nanosecondsPerSecond = 1e9;

struct DatedFrame {
    std::int64_t utc = 0; ///< nanoseconds since 1970
    std::int64_t number = 0;
    std::int64_t missing = 0; ///< numbers skipped since the frame before
    int file = 0;             ///< of the request's recordings
    int position = 0;
};

struct PairedCamera {
    std::string serial;
    std::vector<int> files;
    std::vector<DatedFrame> frames; ///< in the order of their dates
    std::vector<int> runs;          ///< for each frame: in which unbroken sequence it is, from 0
    std::int64_t period = 0;        ///< nanoseconds from one frame to the next, as it mostly is
    std::int64_t missing = 0;
    std::int64_t unrecorded = 0; ///< numbers skipped between the recordings
    std::int64_t restarts = 0;   ///< how often the numbers began anew between the recordings
    std::int64_t undated =
        0; ///< frames that cannot be paired: damaged, or of a recording without dates
    std::int64_t worstError = 0; ///< nanoseconds, of the mapping to UTC
    std::vector<int>
        partners; ///< of the first camera's frames: index of the frame beside it, or -1
};

std::string serialOf(const Recording& recording, const std::string& path)
{
    const QByteArray text = QByteArray::fromStdString(recording.metadata());
    const QString serial =
        QJsonDocument::fromJson(text).object()[QLatin1String("serial")].toString();
    return serial.isEmpty() ? path : serial.toStdString();
}

void addFrames(PairedCamera& camera, const Recording& recording, int file)
{
    for (int position = 0; position < recording.frameCount(); ++position) {
        std::optional<zrn::WallTime> date;
        zrn::recording::FrameHeader header;
        try {
            header = recording.header(position);
        } catch (const Error&) {
            ++camera.undated;
            continue;
        }
        if (recording.version() > 1) {
            const zrn::FrameTimes::time_point arrival{
                std::chrono::nanoseconds(header.arrivalNanoseconds)};
            date = recording.wallTime(header.times.source == zrn::FrameTimes::Source::Grab
                                          ? arrival
                                          : header.times.firstPayload,
                                      zrn::WallClock::Kind::Realtime);
        }
        if (!date) {
            ++camera.undated;
            continue;
        }
        camera.worstError = std::max<std::int64_t>(camera.worstError, date->error.count());
        camera.frames.push_back({date->sinceEpoch.count(), static_cast<std::int64_t>(header.number),
                                 static_cast<std::int64_t>(header.missing), file, position});
    }
}

std::int64_t middleOf(std::vector<std::int64_t> values)
{
    if (values.empty()) {
        return 0;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

std::int64_t periodOf(const PairedCamera& camera)
{
    std::vector<std::int64_t> steps;
    for (std::size_t i = 1; i < camera.frames.size(); ++i) {
        steps.push_back(interval(camera.frames[i - 1].utc, camera.frames[i].utc));
    }
    return middleOf(std::move(steps));
}

/// Numbers have 32 bits and begin again after the last one.
std::int64_t numbersBetween(const DatedFrame& from, const DatedFrame& to)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(to.number) -
                                     static_cast<std::uint32_t>(from.number));
}

/// Counts what is missing, and finds where the camera's stream was interrupted: there the numbers
/// do not go on with the time.
void followNumbers(PairedCamera& camera, const std::vector<int>& frameCounts)
{
    camera.period = periodOf(camera);
    camera.runs.assign(camera.frames.size(), 0);
    for (std::size_t i = 1; i < camera.frames.size(); ++i) {
        const DatedFrame& before = camera.frames[i - 1];
        const DatedFrame& frame = camera.frames[i];
        const std::int64_t numbers = numbersBetween(before, frame);
        const auto period = static_cast<double>(camera.period);
        // Than it would be in an unbroken stream.
        const double late = static_cast<double>(interval(before.utc, frame.utc)) -
                            static_cast<double>(numbers) * period;
        // Where a frame that was only late divides a sequence, little is lost.
        const bool isUnbroken = numbers > 0 && std::abs(late) <= period / 4;
        camera.runs[i] = camera.runs[i - 1] + (isUnbroken ? 0 : 1);
        camera.missing += frame.missing;
        if (frame.file == before.file) {
            continue;
        }
        if (numbers <= 0 || late < -2 * period) {
            ++camera.restarts; // no camera sends more frames than there was time for
            continue;
        }
        const int undated = frameCounts[static_cast<std::size_t>(before.file)] - 1 -
                            before.position + frame.position;
        camera.unrecorded += std::max<std::int64_t>(0, numbers - 1 - frame.missing - undated);
    }
}

void requireDifferentFiles(const std::vector<std::string>& paths)
{
    std::set<std::filesystem::path> known;
    for (const std::string& path : paths) {
        std::error_code absent; // is told when it is opened
        if (!known.insert(std::filesystem::weakly_canonical(path, absent)).second && !absent) {
            throw Error(Error::Kind::Recording, "GivenTwice", path + " is given twice");
        }
    }
}

void requireDifferentFrames(const PairedCamera& camera, const std::vector<std::string>& paths)
{
    const auto same = std::ranges::adjacent_find(
        camera.frames, [](const DatedFrame& one, const DatedFrame& other) {
            return one.utc == other.utc && one.number == other.number;
        });
    if (same != camera.frames.end()) {
        throw Error(Error::Kind::Recording, "GivenTwice",
                    paths[static_cast<std::size_t>(same->file)] + " and " +
                        paths[static_cast<std::size_t>(std::next(same)->file)] +
                        " hold the same frames",
                    "Give one of them alone.");
    }
}

std::vector<PairedCamera> camerasOf(const PairRequest& request)
{
    requireDifferentFiles(request.recordings);
    std::vector<PairedCamera> cameras;
    std::vector<int> frameCounts;
    for (std::size_t file = 0; file < request.recordings.size(); ++file) {
        const Recording recording(request.recordings[file]);
        const std::string serial = serialOf(recording, request.recordings[file]);
        auto camera = std::ranges::find(cameras, serial, &PairedCamera::serial);
        if (camera == cameras.end()) {
            camera = cameras.insert(camera, PairedCamera{});
            camera->serial = serial;
        }
        camera->files.push_back(static_cast<int>(file));
        frameCounts.push_back(recording.frameCount());
        addFrames(*camera, recording, static_cast<int>(file));
    }
    for (PairedCamera& camera : cameras) {
        std::ranges::stable_sort(camera.frames, {}, &DatedFrame::utc);
        requireDifferentFrames(camera, request.recordings);
        followNumbers(camera, frameCounts);
    }
    return cameras;
}

std::int64_t distance(const DatedFrame& one, const DatedFrame& other)
{
    return std::llabs(interval(one.utc, other.utc));
}

/// Index of the frame that is nearest to a date, or -1.
int nearest(const std::vector<DatedFrame>& frames, const DatedFrame& to)
{
    auto after = std::ranges::lower_bound(frames, to.utc, {}, &DatedFrame::utc);
    if (after == frames.end() ||
        (after != frames.begin() && distance(*std::prev(after), to) <= distance(*after, to))) {
        if (after == frames.begin()) {
            return -1;
        }
        --after;
    }
    return static_cast<int>(after - frames.begin());
}

void pairWith(const PairedCamera& first, PairedCamera& camera, std::int64_t within)
{
    camera.partners.assign(first.frames.size(), -1);
    for (std::size_t i = 0; i < camera.frames.size(); ++i) {
        const int partner = nearest(first.frames, camera.frames[i]);
        if (partner < 0) {
            continue;
        }
        const DatedFrame& beside = first.frames[static_cast<std::size_t>(partner)];
        if (distance(beside, camera.frames[i]) > within) {
            continue;
        }
        int& taken = camera.partners[static_cast<std::size_t>(partner)];
        if (taken < 0 || distance(beside, camera.frames[i]) <
                             distance(beside, camera.frames[static_cast<std::size_t>(taken)])) {
            taken = static_cast<int>(i);
        }
    }
}

/// Lines of one slope through the distances of the pairs over time.
struct Drift {
    double slope = 0;
    double error = 0; ///< standard error of the slope
};

/// Pairs while both cameras went on: times and distances, as differences from their first ones.
struct Stretch {
    std::int64_t firstTime = 0;
    std::vector<double> times;
    std::vector<double> distances;
};

/// @param period beyond half of which a distance begins on the other side
std::vector<Stretch> stretchesOf(const PairedCamera& first, const PairedCamera& camera,
                                 std::int64_t period)
{
    std::vector<Stretch> stretches;
    if (period <= 0) {
        return stretches;
    }
    std::pair<int, int> runs(-1, -1);
    for (std::size_t i = 0; i < first.frames.size(); ++i) {
        if (camera.partners[i] < 0) {
            continue;
        }
        const auto partner = static_cast<std::size_t>(camera.partners[i]);
        const auto apart =
            static_cast<double>(interval(first.frames[i].utc, camera.frames[partner].utc));
        if (const std::pair both(first.runs[i], camera.runs[partner]); both != runs) {
            runs = both;
            stretches.push_back({first.frames[i].utc, {}, {apart}});
        } else {
            const double last = stretches.back().distances.back();
            stretches.back().distances.push_back(
                last + std::remainder(apart - last, static_cast<double>(period)));
        }
        Stretch& stretch = stretches.back();
        stretch.times.push_back(
            static_cast<double>(interval(stretch.firstTime, first.frames[i].utc)));
    }
    return stretches;
}

double meanOf(const std::vector<double>& values)
{
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

/// A camera that starts anew lies anywhere beside the first one: each stretch has a line of its
/// own, and all of them one slope.
std::optional<Drift> driftOf(const std::vector<Stretch>& stretches)
{
    double spread = 0;
    double common = 0;
    double rest = 0;
    double freedom = -1;
    for (const Stretch& stretch : stretches) {
        const double meanTime = meanOf(stretch.times);
        const double meanDistance = meanOf(stretch.distances);
        for (std::size_t i = 0; i < stretch.times.size(); ++i) {
            const double time = stretch.times[i] - meanTime;
            const double distance = stretch.distances[i] - meanDistance;
            spread += time * time;
            common += time * distance;
            rest += distance * distance;
        }
        freedom += static_cast<double>(stretch.times.size()) - 1;
    }
    if (freedom < 1 || spread <= 0) {
        return std::nullopt;
    }
    const double slope = common / spread;
    rest = std::max(0.0, rest - slope * common);
    return Drift{slope, std::sqrt(rest / freedom / spread)};
}

QJsonObject report(const PairRequest& request, const PairedCamera& first,
                   const PairedCamera& camera)
{
    QJsonArray files;
    for (const int file : camera.files) {
        files.append(
            QString::fromLocal8Bit(request.recordings[static_cast<std::size_t>(file)].c_str()));
    }
    QJsonObject told{
        {QStringLiteral("serial"), QString::fromStdString(camera.serial)},
        {QStringLiteral("files"), files},
        {QStringLiteral("frames"), static_cast<qint64>(camera.frames.size())},
        {QStringLiteral("missing"), static_cast<qint64>(camera.missing)},
        {QStringLiteral("unrecorded"), static_cast<qint64>(camera.unrecorded)},
        {QStringLiteral("restarts"), static_cast<qint64>(camera.restarts)},
        {QStringLiteral("undated"), static_cast<qint64>(camera.undated)},
        {QStringLiteral("periodMs"),
         static_cast<double>(camera.period) / nanosecondsPerMillisecond},
        {QStringLiteral("clockErrorMs"),
         static_cast<double>(camera.worstError) / nanosecondsPerMillisecond},
    };
    std::vector<std::int64_t> phases;
    for (std::size_t i = 0; i < camera.partners.size(); ++i) {
        if (camera.partners[i] >= 0) {
            phases.push_back(
                interval(first.frames[i].utc,
                         camera.frames[static_cast<std::size_t>(camera.partners[i])].utc));
        }
    }
    told[QLatin1String("paired")] = static_cast<qint64>(phases.size());
    told[QLatin1String("unpaired")] = static_cast<qint64>(camera.frames.size() - phases.size());
    if (&first == &camera || phases.empty()) {
        return told;
    }
    const auto [least, most] = std::ranges::minmax(phases);
    told[QLatin1String("phaseMs")] = QJsonObject{
        {QStringLiteral("least"), static_cast<double>(least) / nanosecondsPerMillisecond},
        {QStringLiteral("median"),
         static_cast<double>(middleOf(phases)) / nanosecondsPerMillisecond},
        {QStringLiteral("most"), static_cast<double>(most) / nanosecondsPerMillisecond}};
    if (const std::optional<Drift> drift = driftOf(stretchesOf(first, camera, first.period))) {
        constexpr double million = 1e6;
        told[QLatin1String("driftPpm")] = drift->slope * million;
        told[QLatin1String("driftErrorPpm")] = drift->error * million;
    }
    return told;
}

/// One line of the table: a date, and of each camera the frame, or null.
struct Row {
    std::int64_t utc = 0;
    std::vector<const DatedFrame*> frames;
};

std::vector<Row> rowsOf(const std::vector<PairedCamera>& cameras)
{
    std::vector<Row> rows;
    const PairedCamera& first = cameras.front();
    for (std::size_t i = 0; i < first.frames.size(); ++i) {
        rows.push_back({first.frames[i].utc, {}});
        for (const PairedCamera& camera : cameras) {
            const int partner = camera.partners[i];
            rows.back().frames.push_back(
                partner < 0 ? nullptr : &camera.frames[static_cast<std::size_t>(partner)]);
        }
    }
    for (std::size_t i = 1; i < cameras.size(); ++i) {
        std::vector<bool> isPaired(cameras[i].frames.size());
        for (const int partner : cameras[i].partners) {
            if (partner >= 0) {
                isPaired[static_cast<std::size_t>(partner)] = true;
            }
        }
        for (std::size_t frame = 0; frame < isPaired.size(); ++frame) {
            if (!isPaired[frame]) {
                Row row{cameras[i].frames[frame].utc,
                        std::vector<const DatedFrame*>(cameras.size())};
                row.frames[i] = &cameras[i].frames[frame];
                rows.push_back(std::move(row));
            }
        }
    }
    std::ranges::stable_sort(rows, {}, &Row::utc);
    return rows;
}

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        result += c == '"' ? "\"\"" : std::string(1, c);
    }
    return result + '"';
}

void writeTable(const PairRequest& request, const std::vector<PairedCamera>& cameras,
                const std::vector<Row>& rows)
{
    TargetFile file(request.table, TargetFile::Kind::FileOrPipe);
    std::string line = "utc";
    for (const PairedCamera& camera : cameras) {
        for (const char* column : {" file", " position", " number", " phase_s"}) {
            line += ',' + quoted(camera.serial + column);
        }
    }
    file.write(line + '\n');
    for (const Row& row : rows) {
        line = zrnhost::dateText(row.utc);
        for (const DatedFrame* frame : row.frames) {
            if (!frame) {
                line += ",,,,";
                continue;
            }
            const double phase =
                static_cast<double>(interval(row.utc, frame->utc)) / nanosecondsPerSecond;
            line += ',' + quoted(request.recordings[static_cast<std::size_t>(frame->file)]) + ',' +
                    std::to_string(frame->position) + ',' + std::to_string(frame->number) + ',' +
                    std::to_string(phase);
        }
        file.write(line + '\n');
    }
    file.commit();
}

} // namespace

QJsonObject pairRecordings(const PairRequest& request)
{
    std::vector<PairedCamera> cameras = camerasOf(request);
    const std::int64_t within =
        request.withinMilliseconds > 0
            ? static_cast<std::int64_t>(request.withinMilliseconds * nanosecondsPerMillisecond)
            : cameras.front().period / 2;
    PairedCamera& first = cameras.front();
    first.partners.resize(first.frames.size());
    std::iota(first.partners.begin(), first.partners.end(), 0);
    for (std::size_t i = 1; i < cameras.size(); ++i) {
        pairWith(first, cameras[i], within);
    }
    const std::vector<Row> rows = rowsOf(cameras);
    if (!request.table.empty()) {
        writeTable(request, cameras, rows);
    }
    QJsonArray told;
    for (const PairedCamera& camera : cameras) {
        told.append(report(request, first, camera));
    }
    const auto complete = std::ranges::count_if(rows, [](const Row& row) {
        return std::ranges::none_of(row.frames, [](const DatedFrame* frame) { return !frame; });
    });
    return {{QStringLiteral("withinMs"), static_cast<double>(within) / nanosecondsPerMillisecond},
            {QStringLiteral("rows"), static_cast<qint64>(rows.size())},
            {QStringLiteral("complete"), static_cast<qint64>(complete)},
            {QStringLiteral("cameras"), told}};
}

} // namespace zrnrec
