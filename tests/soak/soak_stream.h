#pragma once

#include "client/stream.h"
#include "operation_log.h"
#include "pauses.h"
#include "stream_ledger.h"

#include <memory>
#include <string>
#include <vector>

namespace soak
{

/// A stream of the client library for one round, kept alive, and who takes its frames.
class SoakStream
{
public:
    /// Opens the camera and starts the stream. @throws zrn::Error
    SoakStream(const std::shared_ptr<zrn::Driver>& driver, OperationLog& log,
               const std::string& serial, zrn::QueuePolicy policy);
    SoakStream(const SoakStream&) = delete;
    SoakStream& operator=(const SoakStream&) = delete;

    /// Takes frames until the round ends, and is busy elsewhere at times.
    void takeThread(Pauses& pauses, unsigned seed);
    /// Waits until frames are there again. @throws std::runtime_error when none come
    void waitForFrame();
    /// Ends stream and camera, whatever they do, and takes what is left.
    void close();

    /// What became of the frames that the virtual camera has begun meanwhile. Those that were taken
    /// are among them, in their order.
    [[nodiscard]] Outcomes settle(const std::vector<SentFrame>& sent) const;

private:
    void note(const zrn::Frame& frame);

    OperationLog& m_log;
    const std::string m_policy;
    std::unique_ptr<zrn::Stream> m_stream;
    zrn::StreamCounters m_counters;     ///< at the end
    std::vector<std::uint64_t> m_taken; ///< trailers
};

} // namespace soak
