#pragma once

#include <QDebug>
#include <QLoggingCategory>
#include <QString>

#include <cstdint>
#include <optional>
#include <pthread.h>
#include <vector>

/// The name of the driver's logging category.
inline constexpr auto driverCategory = "ZRNCamera";

/// One call of the driver, on the thread that makes it; calls within it belong to it.
///
/// Whatever a host or libuvc can call begins with one, before it takes any lock. It serves two
/// ends:
///
/// Log lines. What the driver has to say is kept until the outermost call of the thread has given
/// back its locks, and is written then, so that a host's message handler may call anything. The
/// lines of libuvc's streaming threads are written by a thread of their own: whoever stops a stream
/// waits for its callback, which therefore must not wait for a message handler.
///
/// Leaving. A process that exits, and a child that was forked from the one that uses the cameras,
/// have no cameras: calls that begin then are refused before they touch anything that is shared. A
/// process that exits waits for the calls that have begun, because QtCore's own objects go next.
///
/// What stands behind it is never destroyed. Thread-safe.
class Operation
{
public:
    /// Whose call it is.
    enum class Origin : std::uint8_t {
        Host,
        Stream, ///< libuvc's streaming thread; makes no system call
    };
    explicit Operation(Origin origin = Origin::Host);
    ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// Whether the caller has cameras.
    explicit operator bool() const { return m_isAdmitted; }
    /// The same without a call.
    static bool isAdmitted();
    /// Ends the thread's part where its call has outlasted the driver.
    static void parkWhereAbandoned();

    /// The calling process is the one that uses the cameras.
    static void claimProcess();
    static bool isForkedChild();

    /// A line of the log, or of the standard output where it has no category.
    struct Line {
        QtMsgType level;
        const char* category;
        QString text;
    };
    /// Writes a line when the thread's call has released its locks.
    static void write(Line line);
    /// The same with a text for the standard output.
    static void print(const QString& text) { write({QtDebugMsg, nullptr, text}); }
    /// Waits until the lines of streaming threads are written.
    static void awaitStreamLines();
    /// Ends the thread that writes them, before the library is unmapped.
    static void endWriting();

    // The end of the process, in this order. Only the thread that exits uses the cameras then.
    static void beginLeaving();
    /// Waits until no other thread is in the driver. @return whether that is so, and the calling
    /// thread did not exit within a call of its own.
    static bool awaitOthers();
    static void endLeaving();

private:
    struct Record {
        pthread_t thread = pthread_self();
        Origin origin = Origin::Host;
        bool isWriting = false; ///< has released its locks
        std::vector<Line> lines;
        Record* next = nullptr;
        Record** link = nullptr; ///< what points at this
    };
    struct State;

    static void report(const std::vector<Line>& lines);

    Record m_record;
    bool m_isAdmitted = false;
    bool m_isOutermost = false;
};

/// A line of the log that is put together like one of QDebug.
class LogStream
{
public:
    LogStream(QtMsgType level, const QLoggingCategory& category)
        : LogStream(level, category.categoryName(), category.isEnabled(level))
    {
    }
    LogStream(QtMsgType level, const char* category, bool isEnabled = true)
        : m_level(level)
        , m_category(category)
    {
        if (isEnabled) {
            m_stream.emplace(&m_text);
        }
    }
    ~LogStream();
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    template <typename T>
    LogStream& operator<<(const T& value)
    {
        if (m_stream) {
            *m_stream << value;
        }
        return *this;
    }

private:
    QtMsgType m_level;
    const char* m_category;
    QString m_text;
    std::optional<QDebug> m_stream; ///< none for a line that nobody wants
};
