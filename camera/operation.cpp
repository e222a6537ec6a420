#include "operation.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace
{

constexpr auto childsLine =
    " cameras belong to the process that enumerated them, a forked child has none, pid:";

/// Longer than any control request of a camera that answers late.
constexpr std::chrono::seconds callLimit(10);
/// A message handler may wait for the thread that exits.
constexpr std::chrono::milliseconds handlerLimit(500);
/// So that a row of lines needs one thread.
constexpr std::chrono::seconds writerPatience(1);

/// What a new thread of the driver must not be interrupted by: signals are the host's.
class BlockedSignals
{
public:
    BlockedSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_before{};
};

} // namespace

struct Operation::State {
    std::mutex mutex; ///< guards what follows, but for the atomic fields
    std::condition_variable changed;
    Record* records = nullptr; ///< of the calls that have begun, each thread's outermost

    std::vector<Line> streamLines; ///< holds no memory while it is empty
    bool isWriterRunning = false;
    bool isWriterBusy = false;
    bool isWriterToEnd = false;
    std::thread writer;

    std::atomic<pid_t> owner = 0; ///< the process that uses the cameras, 0 before the first use
    std::atomic<bool> isChildReported = false;
    std::atomic<bool> isLeaving = false;
    std::atomic<bool> isGone = false;
    std::atomic<bool> isSilent = false;
    std::atomic<bool> hasLeaver = false;
    std::atomic<pthread_t> leaver; ///< the thread that exits

    static State& instance()
    {
        alignas(State) static std::byte storage[sizeof(State)];
        static auto* const state = new (storage) State;
        return *state;
    }

    void enter(Record& record)
    {
        record.next = records;
        record.link = &records;
        if (records) {
            records->link = &record.next;
        }
        records = &record;
    }
    void leave(Record& record)
    {
        *record.link = record.next;
        if (record.next) {
            record.next->link = record.link;
        }
        changed.notify_all();
    }
    /// The thread's call that has not released its locks yet, or null.
    [[nodiscard]] Record* callOf(pthread_t thread) const
    {
        for (Record* record = records; record; record = record->next) {
            if (!record->isWriting && pthread_equal(record->thread, thread)) {
                return record;
            }
        }
        return nullptr;
    }
    template <typename Predicate>
    [[nodiscard]] bool anyRecord(Predicate predicate) const
    {
        for (const Record* record = records; record; record = record->next) {
            if (predicate(*record)) {
                return true;
            }
        }
        return false;
    }
    [[nodiscard]] bool isLeaver() const
    {
        return hasLeaver && pthread_equal(leaver, pthread_self());
    }
    [[nodiscard]] bool isSilentHere() const
    {
        return isGone || isSilent || (isLeaving && !isLeaver());
    }

    void startWriter();
    void writeStreamLines();
};

Operation::Operation(Origin origin)
{
    State& state = State::instance();
    if (origin == Origin::Host && isForkedChild()) {
        if (!state.isChildReported.exchange(true)) {
            LogStream(QtCriticalMsg, driverCategory) << childsLine << getpid();
        }
        return;
    }
    bool isAbandoned = false;
    {
        const std::lock_guard lock(state.mutex);
        m_isAdmitted = !state.isLeaving || state.isLeaver();
        m_record.origin = origin;
        const Record* const outer = state.callOf(m_record.thread);
        isAbandoned = outer && state.isGone;
        if (!outer && m_isAdmitted) {
            m_isOutermost = true;
            state.enter(m_record);
        }
    }
    if (isAbandoned) {
        parkWhereAbandoned();
    }
}

Operation::~Operation()
{
    if (!m_isOutermost) {
        return;
    }
    State& state = State::instance();
    {
        const std::lock_guard lock(state.mutex);
        if (m_record.lines.empty() || m_record.origin == Origin::Stream) {
            if (!m_record.lines.empty()) {
                std::move(m_record.lines.begin(), m_record.lines.end(),
                          std::back_inserter(state.streamLines));
                state.startWriter();
            }
            state.leave(m_record);
            return;
        }
        m_record.isWriting = true;
        state.changed.notify_all();
    }
    report(m_record.lines);
    const std::lock_guard lock(state.mutex);
    state.leave(m_record);
}

bool Operation::isAdmitted()
{
    const State& state = State::instance();
    return (!state.isLeaving || state.isLeaver()) && !isForkedChild();
}

void Operation::parkWhereAbandoned()
{
    while (State::instance().isGone) {
        pause();
    }
}

void Operation::claimProcess()
{
    State::instance().owner = getpid();
}

bool Operation::isForkedChild()
{
    const pid_t owner = State::instance().owner;
    return owner != 0 && owner != getpid();
}

void Operation::write(Line line)
{
    State& state = State::instance();
    if (!isForkedChild()) {
        const std::lock_guard lock(state.mutex);
        if (Record* const record = state.callOf(pthread_self())) {
            record->lines.push_back(std::move(line));
            return;
        }
    }
    report({std::move(line)});
}

void Operation::report(const std::vector<Line>& lines)
{
    for (const Line& line : lines) {
        if (State::instance().isSilentHere()) {
            return;
        }
        if (line.category) {
            qt_message_output(line.level, {nullptr, 0, nullptr, line.category}, line.text);
        } else {
            std::fputs(qPrintable(line.text), stdout);
        }
    }
}

void Operation::State::startWriter()
{
    if (isWriterRunning || isWriterToEnd) {
        return;
    }
    if (writer.joinable()) {
        writer.join(); // it has given back the mutex for the last time
    }
    const BlockedSignals signals;
    try {
        writer = std::thread([this] { writeStreamLines(); });
        isWriterRunning = true;
    } catch (const std::system_error&) {
        return; // the next line tries again
    }
}

void Operation::State::writeStreamLines()
{
    std::unique_lock lock(mutex);
    const auto isWanted = [this] { return isWriterToEnd || !streamLines.empty(); };
    while (changed.wait_for(lock, writerPatience, isWanted) && !streamLines.empty()) {
        const std::vector<Line> lines = std::exchange(streamLines, std::vector<Line>());
        Record record;
        record.isWriting = true;
        enter(record);
        isWriterBusy = true;
        lock.unlock();
        report(lines);
        lock.lock();
        isWriterBusy = false;
        leave(record);
    }
    isWriterRunning = false;
}

void Operation::awaitStreamLines()
{
    State& state = State::instance();
    std::unique_lock lock(state.mutex);
    state.changed.wait(lock, [&state] { return state.streamLines.empty() && !state.isWriterBusy; });
}

void Operation::endWriting()
{
    State& state = State::instance();
    {
        const std::lock_guard lock(state.mutex);
        state.isWriterToEnd = true;
        state.changed.notify_all();
    }
    if (state.writer.joinable() && state.writer.get_id() != std::this_thread::get_id()) {
        state.writer.join();
    }
}

void Operation::beginLeaving()
{
    State& state = State::instance();
    const std::lock_guard lock(state.mutex);
    state.leaver = pthread_self();
    state.hasLeaver = true;
    // A message handler that exits may hold a lock of its own.
    state.isSilent = state.anyRecord([](const Record& record) {
        return record.isWriting && pthread_equal(record.thread, pthread_self());
    });
    state.isLeaving = true;
}

bool Operation::awaitOthers()
{
    State& state = State::instance();
    std::unique_lock lock(state.mutex);
    const auto isFreeOf = [&state](bool writing) {
        return [&state, writing] {
            return !state.anyRecord([writing](const Record& record) {
                return record.isWriting == writing && !pthread_equal(record.thread, pthread_self());
            });
        };
    };
    const bool isAlone = state.changed.wait_for(lock, callLimit, isFreeOf(false));
    state.changed.wait_for(lock, handlerLimit, isFreeOf(true));
    return isAlone && !state.callOf(pthread_self());
}

void Operation::endLeaving()
{
    State& state = State::instance();
    state.isGone = true;
    state.hasLeaver = false;
    bool isBusy = false;
    {
        const std::lock_guard lock(state.mutex);
        state.isWriterToEnd = true;
        state.changed.notify_all();
        isBusy = state.isWriterBusy;
    }
    if (!state.writer.joinable()) {
        return;
    }
    // A message handler of the host may never come back, or be what exits.
    if (isBusy) {
        state.writer.detach();
    } else {
        state.writer.join();
    }
}

LogStream::~LogStream()
{
    if (!m_stream) {
        return;
    }
    m_stream.reset();
    if (m_text.endsWith(QLatin1Char(' '))) {
        m_text.chop(1);
    }
    Operation::write({m_level, m_category, std::move(m_text)});
}
