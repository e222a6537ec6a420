#include "client/recording_session.h"

#include "client/error.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <numeric>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zrn
{
namespace
{

namespace fs = std::filesystem;
using SystemTime = std::chrono::system_clock::time_point;

QString toQt(const std::string& text)
{
    return QString::fromLocal8Bit(text.c_str());
}

QString dateOf(SystemTime time)
{
    using std::chrono::milliseconds;
    const auto sinceEpoch =
        std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
    return QDateTime::fromMSecsSinceEpoch(sinceEpoch, Qt::UTC).toString(Qt::ISODateWithMs);
}

qint64 toQt(std::uint64_t number)
{
    return static_cast<qint64>(number);
}

QJsonObject objectOf(const RecordedFile& file, bool withFolders)
{
    const std::string path = withFolders ? file.path : fs::path(file.path).filename().string();
    return {{QStringLiteral("path"), toQt(path)},
            {QStringLiteral("frames"), toQt(file.frames)},
            {QStringLiteral("missing"), toQt(file.missing)},
            {QStringLiteral("bytes"), toQt(file.bytes)},
            {QStringLiteral("firstNumber"), qint64{file.firstNumber}},
            {QStringLiteral("lastNumber"), qint64{file.lastNumber}},
            {QStringLiteral("seconds"), file.seconds}};
}

QJsonObject objectOf(const RecordedPart& part, bool withFolders)
{
    QJsonArray files;
    for (const RecordedFile& file : part.files) {
        files.append(objectOf(file, withFolders));
    }
    return {
        {QStringLiteral("files"), files},
        {QStringLiteral("frames"), toQt(part.frames)},
        {QStringLiteral("missing"), toQt(part.missing)},
        {QStringLiteral("lost"), QJsonObject{{QStringLiteral("camera"), toQt(part.lost.camera)},
                                             {QStringLiteral("library"), toQt(part.lost.library)},
                                             {QStringLiteral("ring"), toQt(part.lost.ring)},
                                             {QStringLiteral("queue"), toQt(part.lost.queue)}}},
        {QStringLiteral("unwritten"), toQt(part.unwritten)},
        {QStringLiteral("seconds"), part.seconds},
        {QStringLiteral("secondsBefore"), part.secondsBefore},
        {QStringLiteral("failure"),
         part.failure.empty() ? QJsonValue() : QJsonValue(toQt(part.failure))}};
}

Error notWritable(const std::string& path, const std::string& why)
{
    return {Error::Kind::Recording, "NotWritable", path + ": " + why};
}

/// The number of the set that a file belongs to; 0 if it belongs to none of this name.
unsigned numberIn(std::string_view file, const std::string& name)
{
    if (!file.starts_with(name + '_')) {
        return 0;
    }
    file.remove_prefix(name.size() + 1);
    unsigned number = 0;
    const char* const end = file.data() + file.size();
    const auto [rest, error] = std::from_chars(file.data(), end, number);
    return error == std::errc() && rest != end && (*rest == '.' || *rest == '_') ? number : 0;
}

unsigned highestNumber(const std::string& folder, const std::string& name)
{
    unsigned highest = 0;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        highest = std::max(highest, numberIn(entry->path().filename().string(), name));
    }
    return highest;
}

} // namespace

std::string digitsOf(unsigned number, std::size_t fewest)
{
    const std::string digits = std::to_string(number);
    return std::string(digits.size() < fewest ? fewest - digits.size() : 0, '0') + digits;
}

std::uint64_t RecordedPart::bytes() const
{
    return std::accumulate(
        files.begin(), files.end(), std::uint64_t{0},
        [](std::uint64_t sum, const RecordedFile& file) { return sum + file.bytes; });
}

RecordedPart sumOf(const std::vector<RecordedPart>& parts)
{
    RecordedPart sum;
    for (const RecordedPart& part : parts) {
        sum.files.insert(sum.files.end(), part.files.begin(), part.files.end());
        sum.frames += part.frames;
        sum.missing += part.missing;
        sum.unwritten += part.unwritten;
        sum.seconds += part.seconds;
        sum.lost.camera += part.lost.camera;
        sum.lost.library += part.lost.library;
        sum.lost.ring += part.lost.ring;
        sum.lost.queue += part.lost.queue;
        sum.failure = sum.failure.empty() ? part.failure : sum.failure;
    }
    return sum;
}

std::string toJson(const RecordedPart& part, bool withFolders)
{
    return QJsonDocument(objectOf(part, withFolders)).toJson(QJsonDocument::Compact).toStdString();
}

RecordingSession::RecordingSession(RecordingPlan plan)
    : m_plan(std::move(plan))
{
    std::error_code error;
    fs::create_directories(m_plan.folder, error);
    std::error_code ignored; // why it cannot be looked at is why it could not be made
    if (!fs::is_directory(m_plan.folder, ignored)) {
        throw notWritable(m_plan.folder, "the folder cannot be made" +
                                             (error ? ": " + error.message() : std::string()));
    }
    if (::access(m_plan.folder.c_str(), W_OK | X_OK) != 0) {
        throw notWritable(m_plan.folder, std::generic_category().message(errno));
    }
    if (!m_plan.waitsForTrigger) {
        m_sets.emplace_back();
    }
}

void RecordingSession::trigger()
{
    const std::lock_guard lock(m_mutex);
    if (!m_plan.waitsForTrigger) {
        return;
    }
    const Clock::time_point now = Clock::now(); // with the lock: no frame of later is judged yet
    Set* const last = m_sets.empty() ? nullptr : &m_sets.back();
    const bool goesOn = last && !last->hasEnded &&
                        (!m_plan.duration || now - last->triggers.back() <= *m_plan.duration);
    if (!goesOn && m_plan.mostSets > 0 && m_sets.size() >= m_plan.mostSets) {
        return;
    }
    Set& set = goesOn ? *last : m_sets.emplace_back();
    set.triggers.push_back(now);
    set.times.push_back(std::chrono::system_clock::now());
}

std::string RecordingSession::fileOf(std::size_t set) const
{
    const std::lock_guard lock(m_filesMutex);
    const auto found = m_files.find(set);
    return found == m_files.end() ? std::string() : found->second.base + ".json";
}

std::string RecordingSession::failure() const
{
    const std::lock_guard lock(m_filesMutex);
    return m_failure;
}

std::optional<RecordingSession::Clock::time_point> RecordingSession::beginOf(std::size_t set) const
{
    const std::lock_guard lock(m_mutex);
    if (set >= m_sets.size()) {
        return std::nullopt;
    }
    const std::vector<Clock::time_point>& triggers = m_sets[set].triggers;
    return triggers.empty() ? Clock::time_point::min()
                            : triggers.front() - std::chrono::ceil<Clock::duration>(m_plan.before);
}

std::vector<RecordingSession::Clock::time_point> RecordingSession::triggersOf(std::size_t set) const
{
    const std::lock_guard lock(m_mutex);
    return m_sets.at(set).triggers;
}

bool RecordingSession::isLast(std::size_t set) const
{
    return m_plan.waitsForTrigger ? m_plan.mostSets > 0 && set + 1 >= m_plan.mostSets : true;
}

bool RecordingSession::isOver(std::size_t set, Count& count, Clock::time_point start,
                              Clock::time_point time)
{
    const std::lock_guard lock(m_mutex);
    Set& current = m_sets.at(set);
    const Clock::time_point since = current.triggers.empty() ? start : current.triggers.back();
    if (count.since != since) {
        count = {since, 0};
    }
    const bool isNextDue = set + 1 < m_sets.size() && time > m_sets[set + 1].triggers.front();
    const bool isAfter = current.triggers.empty() || time > since;
    const bool hasEnded = (m_plan.duration && time - since > *m_plan.duration) ||
                          (m_plan.frames && count.frames >= *m_plan.frames && isAfter);
    current.hasEnded = current.hasEnded || hasEnded;
    return hasEnded || isNextDue;
}

void RecordingSession::join(const std::string& serial)
{
    const std::lock_guard lock(m_filesMutex);
    m_serials.insert(serial);
}

void RecordingSession::leave(const std::string& serial)
{
    const std::lock_guard lock(m_filesMutex);
    m_serials.erase(serial);
    for (const auto& [set, files] : m_files) {
        if (!files.isComplete) {
            write(set);
        }
    }
}

std::string RecordingSession::begin(std::size_t set, const std::string& serial)
{
    const std::lock_guard lock(m_filesMutex);
    Files& files = m_files[set];
    if (files.base.empty()) {
        try {
            files.base = claim();
        } catch (...) {
            m_files.erase(set);
            throw;
        }
    }
    files.parts[serial].reset();
    write(set);
    return files.base + '_' + serial;
}

void RecordingSession::end(std::size_t set, const std::string& serial, RecordedPart part)
{
    const std::lock_guard lock(m_filesMutex);
    if (m_files.contains(set)) { // it could be begun
        m_files[set].parts[serial] = std::move(part);
        write(set);
    }
}

/// Makes the JSON file of a new set, which keeps its number from other sessions. @throws Error
std::string RecordingSession::claim() const
{
    const std::string start = fs::absolute(m_plan.folder).lexically_normal() / m_plan.name;
    for (unsigned number = highestNumber(m_plan.folder, m_plan.name) + 1;; ++number) {
        const std::string base = start + '_' + digitsOf(number, 4);
        const std::string path = base + ".json";
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file >= 0) {
            ::close(file);
            return base;
        }
        if (errno != EEXIST) {
            throw notWritable(path, std::generic_category().message(errno));
        }
    }
}

/// Writes the JSON file of a set anew. With m_filesMutex.
void RecordingSession::write(std::size_t set)
{
    Files& files = m_files.at(set);
    QJsonArray cameras;
    files.isComplete = std::ranges::all_of(
        m_serials, [&files](const std::string& serial) { return files.parts.contains(serial); });
    for (const auto& [serial, part] : files.parts) {
        QJsonObject camera = objectOf(part.value_or(RecordedPart()), false);
        camera[QLatin1String("serial")] = toQt(serial);
        camera[QLatin1String("complete")] = part.has_value();
        cameras.append(camera);
        files.isComplete = files.isComplete && part;
    }
    QJsonArray triggers;
    {
        const std::lock_guard lock(m_mutex);
        for (const SystemTime time : m_sets.at(set).times) {
            triggers.append(dateOf(time));
        }
    }
    const QJsonObject document{
        {QStringLiteral("format"), QStringLiteral("zrncam-recording-set")},
        {QStringLiteral("version"), 1},
        {QStringLiteral("complete"), files.isComplete},
        {QStringLiteral("begin"), triggers.isEmpty() ? QJsonValue(dateOf(m_start)) : triggers[0]},
        {QStringLiteral("triggers"), triggers},
        {QStringLiteral("cameras"), cameras}};
    const std::string path = files.base + ".json";
    QSaveFile file(toQt(path));
    const QByteArray text = QJsonDocument(document).toJson();
    // What Qt keeps in a buffer of its own it writes at the end, and does not notice a failure.
    bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    // A write may end early where the disk does; why, the next one tells.
    for (qint64 written = 0; isWritten && written < text.size();) {
        const qint64 more = file.write(text.constData() + written, text.size() - written);
        isWritten = more > 0;
        written += more;
    }
    isWritten = isWritten && file.commit();
    if (!isWritten && m_failure.empty()) {
        m_failure = path + ": " + file.errorString().toStdString();
    }
}

} // namespace zrn
