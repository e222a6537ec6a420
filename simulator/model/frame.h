#pragma once

#include "model/camera_config.h"
#include "pictures/frame_composer.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace zrnsim
{

using Clock = std::chrono::steady_clock;

/// Writes one packed frame.
using RenderFrame = std::function<void(const FrameRequest&, Bytes&)>;

/// What happens to frames on their way out. Each effect is used up by the frames that it hits.
struct FrameFault {
    int frames = 0;                   ///< how many further frames are hit, negative: all
    std::int64_t sizeDelta = 0;       ///< bytes added to (random content) or cut from the frame
    std::optional<std::size_t> bytes; ///< size of the frame, instead of sizeDelta
    int lostPayloads = 0;             ///< payloads left out from the middle of the frame
    int errorPayloads = 0;            ///< payloads with the error bit, from the first
    bool withoutEndOfFrame = false;   ///< the last payload does not carry the end-of-frame bit
};

/// One frame ready to be sent.
struct Frame {
    FrameRequest request;
    Clock::time_point captured;
    Bytes bytes;
    FrameFault fault;         ///< as it applies to this frame
    std::uint64_t stream = 0; ///< the run of the stream that it belongs to
};

using FramePtr = std::shared_ptr<const Frame>;

/// Recycles frames, so that a stream in steady state allocates nothing. Thread safety:
/// thread-safe.
class FramePool
{
public:
    /// A frame whose buffer keeps its capacity; it comes back when its last owner drops it.
    std::shared_ptr<Frame> take();

private:
    struct Shelf {
        std::mutex mutex;
        std::vector<std::unique_ptr<Frame>> frames;
    };
    std::shared_ptr<Shelf> m_shelf = std::make_shared<Shelf>();
};

} // namespace zrnsim
