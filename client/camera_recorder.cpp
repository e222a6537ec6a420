#include "client/camera_recorder.h"

#include "client/error.h"
#include "client/recording_notes.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

namespace zrn
{
namespace
{

using namespace std::chrono_literals;

/// Between two looks for triggers, and at the clock.
constexpr auto glance = 50ms;
/// Between two looks whether the file is still there.
constexpr auto removalPause = 500ms;
constexpr const char* removal = ": the file was removed meanwhile"; // as a Recorder says

double secondsBetween(std::chrono::steady_clock::time_point from,
                      std::chrono::steady_clock::time_point to)
{
    return std::chrono::duration<double>(to - from).count();
}

StreamLosses operator-(const StreamLosses& later, const StreamLosses& earlier)
{
    return {later.camera - earlier.camera, later.library - earlier.library,
            later.ring - earlier.ring, later.queue - earlier.queue};
}

/// Why a file could not be written any further, with its name.
std::string reasonOf(const Recorder& recorder)
{
    const std::string error = recorder.progress().error;
    return error.starts_with(recorder.path()) ? error : recorder.path() + ": " + error;
}

/// What cannot be told is taken for there: file systems of other machines have their moments.
bool isGone(const std::string& path)
{
    std::error_code error;
    return !std::filesystem::exists(path, error) && !error;
}

std::string asFileName(std::string serial)
{
    std::ranges::replace(serial, '/', '_');
    return serial;
}

} // namespace

std::string metadataOf(const Camera& camera)
{
    const CameraFacts facts = camera.facts();
    const QJsonObject settings{{QStringLiteral("Exposure"), qint64{camera.knownExposure().count()}},
                               {QStringLiteral("Gain"), qint64{camera.knownGain()}}};
    return QJsonDocument(
               QJsonObject{{QStringLiteral("serial"), QString::fromStdString(facts.serial)},
                           {QStringLiteral("time"),
                            QDateTime::currentDateTime().toString(Qt::ISODateWithMs)},
                           {QStringLiteral("width"), qint64{facts.width}},
                           {QStringLiteral("height"), qint64{facts.height}},
                           {QStringLiteral("sensors"), facts.sensorCount},
                           {QStringLiteral("settings"), settings}})
        .toJson(QJsonDocument::Compact)
        .toStdString();
}

CameraRecorder::CameraRecorder(std::shared_ptr<RecordingSession> session, std::string serial,
                               std::function<std::string()> metadata)
    : m_session(std::move(session))
    , m_serial(asFileName(std::move(serial)))
    , m_metadata(std::move(metadata))
{
    m_session->join(m_serial);
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error& error) {
        m_session->leave(m_serial);
        throw Error(Error::Kind::Recording, "NotWritable",
                    "no thread can be started to record: " + error.code().message(),
                    "end other programs, then try again");
    }
}

CameraRecorder::~CameraRecorder()
{
    finish();
}

void CameraRecorder::add(Frame frame, const StreamLosses& lost)
{
    const std::lock_guard lock(m_mutex);
    if (m_isStopping || m_isDone) {
        return;
    }
    frame.step.missing += m_carried.missing;
    frame.step.restarted = frame.step.restarted || m_carried.restarted;
    frame.dropped += std::exchange(m_carriedDrops, 0U);
    m_carried = {};
    m_streamDrops = lost.queue;
    const std::uint64_t size = frame.bytes();
    makeRoom(frame.arrival, size);
    const bool isUsable = isRecordable(frame);
    const bool fits = m_items.empty() || m_bytes + size <= m_session->plan().memoryBytes;
    if (!isUsable || !fits) {
        ++(isUsable ? m_dropped : m_unusable);
        m_carried = frame.step;
        m_carried.missing += frame.step.repeated ? 0U : 1U;
        m_carriedDrops = frame.dropped + (isUsable ? 1U : 0U);
        return;
    }
    m_missing += frame.step.missing;
    Mark mark{frame.step.number, frame.arrival, m_missing, lost};
    mark.lost.queue += m_dropped;
    mark.lost.ring += m_unusable;
    m_bytes += size;
    m_items.push_back({std::move(frame), {}, {}, mark, size});
    m_changed.notify_all();
}

void CameraRecorder::note(RecordingNote note)
{
    keep(std::move(note), {});
}

void CameraRecorder::note(const StreamEvent& event)
{
    note(noteOf(event));
}

void CameraRecorder::watch(Camera& camera)
{
    m_settingsWatch = camera.watchSettings(
        [this](const SettingChange& setting) { keep(noteOf(setting), setting.key); });
}

void CameraRecorder::keep(RecordingNote note, std::string setting)
{
    const std::lock_guard lock(m_mutex);
    if (m_isStopping || m_isDone) {
        return;
    }
    Item item;
    item.mark.arrival = note.time;
    item.bytes = note.text.size();
    item.note = std::move(note);
    item.setting = std::move(setting);
    makeRoom(item.mark.arrival, item.bytes);
    m_bytes += item.bytes;
    m_items.push_back(std::move(item));
    m_changed.notify_all();
}

/// As long as no set is recorded, drops what none that may come needs, and what the memory does not
/// hold. Once a trigger has come, what is as new as that makes room for nothing.
void CameraRecorder::makeRoom(Clock::time_point newest, std::uint64_t size)
{
    if (m_isRecording) {
        return;
    }
    const RecordingPlan& plan = m_session->plan();
    const std::optional<Clock::time_point> begin = m_session->beginOf(m_set);
    const Clock::time_point from =
        begin.value_or(newest - std::chrono::ceil<Clock::duration>(plan.before));
    while (!m_items.empty() && m_items.front().mark.arrival < from) {
        dropOldest();
    }
    const auto mayGo = [&](const Item& item) {
        return !begin ||
               item.mark.arrival < *begin + std::chrono::ceil<Clock::duration>(plan.before);
    };
    while (!m_items.empty() && m_bytes + size > plan.memoryBytes && mayGo(m_items.front())) {
        m_isShortened = true;
        dropOldest();
    }
}

void CameraRecorder::dropOldest()
{
    m_bytes -= m_items.front().bytes;
    rememberSetting(m_items.front());
    m_items.pop_front();
}

/// For the files that begin after it.
void CameraRecorder::rememberSetting(const Item& item)
{
    if (!item.setting.empty()) {
        std::erase_if(m_settings,
                      [&item](const auto& setting) { return setting.first == item.setting; });
        m_settings.emplace_back(item.setting, item.note);
    }
}

void CameraRecorder::stop(const std::string& failure)
{
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
    m_stopFailure = m_stopFailure.empty() ? failure : m_stopFailure;
    m_changed.notify_all();
}

bool CameraRecorder::waitUntilDone(std::chrono::milliseconds longest)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, longest, [this] { return m_isDone; });
}

void CameraRecorder::finish()
{
    stop();
    const std::lock_guard lock(m_joining);
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

CameraRecorderProgress CameraRecorder::progress() const
{
    CameraRecorderProgress progress;
    std::vector<std::shared_ptr<Recorder>> recorders;
    {
        const std::lock_guard lock(m_mutex);
        recorders = m_recorders;
        progress.frames = m_doneFrames;
        progress.bytes = m_doneBytes;
        progress.missing = m_doneMissing + m_partMissing;
        progress.queueLosses = m_dropped;
        progress.queuedBytes =
            m_session->plan().waitsForTrigger && !m_isRecording ? 0 : m_bytes + m_earlyNoteBytes;
        progress.sets = m_set + (m_isRecording ? 1 : 0);
        progress.doneSets = m_parts.size();
        progress.isWaiting = m_session->plan().waitsForTrigger && !m_isRecording && !m_isDone;
        progress.isShortened = m_isShortened;
        progress.isDone = m_isDone;
    }
    for (const std::shared_ptr<Recorder>& recorder : recorders) {
        const RecordingProgress file = recorder->progress();
        progress.frames += file.frames;
        progress.bytes += file.bytes;
        progress.queuedBytes += file.queuedBytes;
    }
    std::error_code error;
    const std::filesystem::space_info disk =
        std::filesystem::space(m_session->plan().folder, error);
    progress.freeBytes = error ? 0 : static_cast<std::int64_t>(disk.available);
    return progress;
}

std::vector<RecordedPart> CameraRecorder::parts() const
{
    const std::lock_guard lock(m_mutex);
    return m_parts;
}

void CameraRecorder::run()
{
    {
        std::unique_lock lock(m_mutex);
        while (!m_isDone) {
            takeUp(lock);
        }
    }
    m_session->leave(m_serial);
    const std::lock_guard lock(m_mutex);
    m_items.clear();
    m_bytes = 0;
}

/// Does what is next to be done, or waits for it. @param lock of m_mutex, given up for the files
void CameraRecorder::takeUp(std::unique_lock<std::mutex>& lock)
{
    const auto unlocked = [&lock](const auto& work) {
        lock.unlock();
        work();
        lock.lock();
    };
    if (!m_isRecording) {
        const std::optional<Clock::time_point> begin = m_session->beginOf(m_set);
        if (!begin && m_isStopping) {
            m_isDone = true;
            m_changed.notify_all();
            return;
        }
        if (!begin) {
            m_changed.wait_for(lock, glance, [this] { return m_isStopping; });
            return;
        }
        while (!m_items.empty() && m_items.front().mark.arrival < *begin) {
            dropOldest();
        }
        m_isRecording = true;
        return;
    }
    if (m_items.empty()) {
        if (m_isStopping || m_session->isOver(m_set, m_count, m_start, Clock::now())) {
            unlocked([this, failure = m_stopFailure] {
                if (!failure.empty()) {
                    fail(failure);
                }
                endSet();
            });
        } else {
            m_changed.wait_for(lock, glance, [this] { return m_isStopping || !m_items.empty(); });
            unlocked([this] { lookForRemoval(); });
        }
    } else if (m_items.front().frame &&
               m_session->isOver(m_set, m_count, m_start, m_items.front().mark.arrival)) {
        unlocked([this] { endSet(); });
    } else {
        Item item = std::move(m_items.front());
        rememberSetting(item);
        m_items.pop_front();
        m_bytes -= item.bytes;
        unlocked([&] { write(std::move(item)); });
    }
    if (!m_part.failure.empty()) {
        m_part.unwritten += static_cast<std::uint64_t>(std::ranges::count_if(
            m_items, [](const Item& item) { return item.frame.has_value(); }));
        m_isStopping = true;
        m_items.clear();
        m_bytes = 0;
        unlocked([this] { endSet(); });
    }
}

void CameraRecorder::write(Item item)
{
    if (item.frame) {
        noteTriggers(m_set, item.mark.arrival);
        writeFrame(std::move(*item.frame), item.mark);
        lookForRemoval();
    } else if (!m_files.empty()) {
        m_files.back().recorder->note(std::move(item.note));
    } else if (item.setting.empty()) {
        keepEarly(std::move(item.note));
    }
}

/// For the first file of the set, which takes no more notes either.
void CameraRecorder::keepEarly(RecordingNote note)
{
    const std::lock_guard lock(m_mutex);
    if (note.text.size() <= recording::maximumNoteBytes &&
        m_earlyNoteBytes + note.text.size() <= recording::maximumNotesBytes) {
        m_earlyNoteBytes += note.text.size();
        m_earlyNotes.push_back(std::move(note));
    }
}

void CameraRecorder::writeFrame(Frame frame, const Mark& mark)
{
    const std::uint64_t size = frame.bytes();
    try {
        open(frame, mark);
    } catch (const std::exception& error) {
        fail(error.what());
        ++m_part.unwritten;
        return;
    }
    File& file = m_files.back();
    if (!file.recorder->add(std::move(frame))) {
        ++m_part.unwritten;
        fail(reasonOf(*file.recorder));
        return;
    }
    file.imageBytes += size;
    file.marks.push_back(mark);
    forget(file);
    const bool counts = !m_session->plan().waitsForTrigger || mark.arrival > m_count.since;
    m_count.frames += counts ? 1U : 0U;
    m_lastTaken = mark;
    if (!m_firstWritten) {
        m_firstWritten = mark;
    }
    const std::lock_guard lock(m_mutex);
    m_partMissing = mark.missing - m_firstWritten->missing;
}

/// Makes sure that there is a file that takes the frame. @throws Error
void CameraRecorder::open(const Frame& frame, const Mark& mark)
{
    const RecordingPlan& plan = m_session->plan();
    if (!m_files.empty()) {
        const File& file = m_files.back();
        const bool isFull =
            plan.segmentBytes > 0 && file.imageBytes + frame.bytes() > plan.segmentBytes;
        const bool isLong =
            plan.segmentDuration > 0ns && mark.arrival - file.first.arrival >= plan.segmentDuration;
        if (!isFull && !isLong) {
            return;
        }
        file.recorder->stop();
        while (m_files.size() > 1) {
            closeFile();
        }
    }
    if (m_base.empty()) {
        m_base = m_session->begin(m_set, m_serial);
    }
    ++m_fileCount;
    const bool isSegmented = plan.segmentBytes > 0 || plan.segmentDuration > 0ns;
    const std::string path =
        m_base + (isSegmented ? '_' + digitsOf(m_fileCount, 3) : std::string()) + ".zrnrec";
    File file;
    file.recorder = std::make_shared<Recorder>(path, m_metadata(), plan.file);
    file.first = mark;
    m_files.push_back(std::move(file));
    m_nextLook = Clock::now() + removalPause;
    std::vector<RecordingNote> notes = std::exchange(m_earlyNotes, {});
    const std::lock_guard lock(m_mutex);
    for (const auto& [key, note] : m_settings) {
        notes.push_back(note);
    }
    std::ranges::stable_sort(notes, {}, &RecordingNote::time);
    for (RecordingNote& note : notes) {
        m_files.back().recorder->note(std::move(note));
    }
    m_earlyNoteBytes = 0;
    m_recorders.push_back(m_files.back().recorder);
}

/// Completes the oldest file.
void CameraRecorder::closeFile()
{
    File& file = m_files.front();
    file.recorder->finish();
    const RecordingProgress progress = file.recorder->progress();
    m_part.unwritten += progress.unwritten;
    const bool isThere = progress.frames == 0 || !isGone(file.recorder->path());
    if (!progress.error.empty()) {
        fail(reasonOf(*file.recorder));
    } else if (!isThere) {
        fail(file.recorder->path() + removal);
    }
    std::uint64_t frames = 0;
    if (progress.frames > 0 && isThere) {
        const Mark last = file.marks.at(progress.frames - 1 - file.forgotten);
        m_part.files.push_back({file.recorder->path(), progress.frames,
                                last.missing - file.first.missing, progress.bytes,
                                file.first.number, last.number,
                                secondsBetween(file.first.arrival, last.arrival)});
        m_lastWritten = last;
        frames = progress.frames;
    } else {
        m_part.unwritten += progress.frames;
    }
    m_part.frames += frames;
    m_files.pop_front();
    const std::lock_guard lock(m_mutex);
    m_doneFrames += frames;
    m_doneBytes += frames > 0 ? progress.bytes : 0;
    m_recorders.erase(m_recorders.begin());
}

/// Lets go of marks that are not needed any more.
void CameraRecorder::forget(File& file) const
{
    const std::uint64_t written = file.recorder->progress().frames;
    while (file.forgotten + 1 < written) {
        file.marks.pop_front();
        ++file.forgotten;
    }
}

/// A file that was removed takes what is written all the same.
void CameraRecorder::lookForRemoval()
{
    const Clock::time_point now = Clock::now();
    if (m_files.empty() || now < m_nextLook || !m_part.failure.empty()) {
        return;
    }
    m_nextLook = now + removalPause;
    if (m_files.size() > 1 && m_files.front().recorder->progress().finished) {
        closeFile();
    }
    const Recorder& recorder = *m_files.back().recorder;
    if (recorder.progress().finished) {
        fail(reasonOf(recorder)); // also when no more frames come
    } else if (isGone(recorder.path())) {
        fail(recorder.path() + removal);
    }
}

/// Notes the triggers of the set that came before this.
void CameraRecorder::noteTriggers(std::size_t set, Clock::time_point before)
{
    const std::vector<Clock::time_point> triggers = m_session->triggersOf(set);
    for (; m_notedTriggers < triggers.size() && triggers[m_notedTriggers] < before;
         ++m_notedTriggers) {
        RecordingNote note{triggers[m_notedTriggers], R"({"event":"camera","what":"trigger"})"};
        if (m_files.empty()) {
            keepEarly(std::move(note));
        } else {
            m_files.back().recorder->note(std::move(note));
        }
    }
}

void CameraRecorder::endSet()
{
    std::size_t set = 0;
    std::uint64_t dropped = 0; // until the next frame that was taken
    {
        const std::lock_guard lock(m_mutex);
        set = m_set++;
        m_isRecording = false; // frames are those of the next set from now on
        const auto next =
            std::ranges::find_if(m_items, [](const Item& item) { return item.frame.has_value(); });
        dropped = next == m_items.end() ? m_streamDrops + m_dropped : next->mark.lost.queue;
    }
    noteTriggers(set, Clock::time_point::max());
    while (!m_files.empty()) {
        closeFile();
    }
    if (m_base.empty()) { // no frame came
        try {
            m_session->begin(set, m_serial);
        } catch (const std::exception& error) {
            fail(error.what());
        }
    }
    if (m_part.frames > 0) {
        const std::uint64_t late = dropped - m_lastTaken.lost.queue;
        const std::vector<Clock::time_point> triggers = m_session->triggersOf(set);
        m_part.missing = m_lastWritten.missing - m_firstWritten->missing + late;
        m_part.lost = m_lastWritten.lost - m_firstWritten->lost;
        m_part.lost.queue += late;
        m_part.seconds = secondsBetween(m_firstWritten->arrival, m_lastWritten.arrival);
        m_part.secondsBefore =
            triggers.empty()
                ? 0
                : std::max(0.0, secondsBetween(m_firstWritten->arrival, triggers.front()));
    }
    RecordedPart part = std::exchange(m_part, {});
    m_session->end(set, m_serial, part);
    m_base.clear();
    m_earlyNotes.clear();
    m_fileCount = 0;
    m_notedTriggers = 0;
    m_firstWritten.reset();
    const std::lock_guard lock(m_mutex);
    m_isDone = m_session->isLast(set) || !part.failure.empty();
    m_parts.push_back(std::move(part));
    m_earlyNoteBytes = 0;
    m_doneMissing += std::exchange(m_partMissing, 0);
    m_changed.notify_all();
}

/// Notes why the set ends, the first reason.
void CameraRecorder::fail(const std::string& why)
{
    if (m_part.failure.empty()) {
        const std::string& folder = m_session->plan().folder;
        m_part.failure = isGone(folder) ? folder + ": the folder is gone" : why;
    }
}

} // namespace zrn
