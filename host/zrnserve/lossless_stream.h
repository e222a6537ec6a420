#pragma once

#include "zrnserve/shared_camera.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace zrnserve
{

/// The images of a camera's frames without loss, as FFV1 in Matroska, to any number of receivers by
/// SRT. The camera is open, and encoded once, while there is one.
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

    const SharedCamera& camera() const { return *m_camera; }
    int port() const { return m_port; }
    int receivers() const { return m_receivers; }

private:
    class Encoding;

    void change(int receivers, GSocketAddress* address);
    void run();
    static GstFlowReturn onData(GstAppSink* sink, gpointer self);

    const std::shared_ptr<SharedCamera> m_camera;
    const int m_port;
    GstElement* m_sender = nullptr;
    GstAppSrc* m_stream = nullptr; ///< what is sent

    std::atomic<int> m_receivers = 0;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isEnding = false;
    std::thread m_thread;
};

} // namespace zrnserve
