#pragma once

#include "zrnserve/shared_camera.h"

#include <atomic>
#include <condition_variable>
#include <gio/gio.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zrnserve
{

/// The images of a camera's frames without loss, as FFV1 in Matroska, to any number of receivers by
/// SRT. The camera is open, and encoded once, while there is one. A stream that fails ends for its
/// receivers: what they have of it is no beginning of the next one.
///
/// Thread safety: thread-bound.
class LosslessStream
{
public:
    struct Options {
        std::string serial;
        int port = 0;
    };

    /// @param passphrase encrypts the stream; empty: it is not encrypted
    /// @throws std::runtime_error when the address cannot be listened on or nothing encodes
    LosslessStream(std::shared_ptr<SharedCamera> camera, const std::string& address, int port,
                   const std::string& passphrase);
    ~LosslessStream();
    LosslessStream(const LosslessStream&) = delete;
    LosslessStream& operator=(const LosslessStream&) = delete;

    struct Receiver {
        std::string name;       ///< address and port
        std::uint64_t sent = 0; ///< bytes, with those that were sent again
    };

    const SharedCamera& camera() const { return *m_camera; }
    int port() const { return m_port; }
    /// Those that are connected.
    std::vector<Receiver> receivers() const;
    /// Streams that ended because something failed.
    std::uint64_t failures() const { return m_failures; }

private:
    class Encoding;

    void change(int receivers, GSocketAddress* address);
    bool admits(GSocketAddress* address) const;
    void run();
    bool send();
    void endSending();
    bool encodeWhileReceived();
    void fail(GstMessage* message);
    static GstFlowReturn onData(GstAppSink* sink, gpointer self);
    static GstBusSyncReply onMessage(GstBus* bus, GstMessage* message, gpointer self);

    const std::shared_ptr<SharedCamera> m_camera;
    const int m_port;
    GstElement* m_sender = nullptr;
    GstElement* m_sink = nullptr;
    GstAppSrc* m_stream = nullptr; ///< what is sent

    /// As the sink knows them: those that have gone as well, until something is sent to them.
    std::atomic<int> m_callers = 0;
    std::atomic<int> m_gone = 0; ///< of them, when they were counted last
    std::atomic<std::uint64_t> m_failures = 0;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isEnding = false;
    bool m_hasFailed = false; ///< since the stream began
    std::thread m_thread;
};

} // namespace zrnserve
