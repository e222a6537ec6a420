// Payloads of any kind, followed as libuvc follows them: the same frames, numbers and sizes, and
// never more collected than its buffer holds.

#include "frame_boundaries.h"
#include "frame_model.h"
#include "payload_meter.h"

#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <optional>
#include <utility>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t longestPayload = 32;
    FuzzedDataProvider input(data, size);
    usbguards::PayloadMeter meter;
    // libuvc 0.0.7 ends a frame of the announced size; 0.0.6 takes what comes.
    constexpr std::size_t largestFrame = 256;
    std::optional<std::size_t> limit;
    if (input.ConsumeBool()) {
        limit = input.ConsumeIntegralInRange<std::size_t>(0, largestFrame);
    }
    usbguards::FrameBoundaries boundaries(limit.value_or(usbguards::FrameBoundaries::unlimited));
    std::vector<std::pair<std::uint32_t, std::size_t>> expected;
    FrameModel libuvc(
        [&expected](const FrameModel::Held& frame) {
            expected.emplace_back(frame.sequence, frame.bytes.size());
        },
        limit);

    std::int64_t now = 0;
    std::int64_t lastEnd = 0;
    while (input.remaining_bytes() > 0) {
        std::vector<std::uint8_t> payload = input.ConsumeBytes<std::uint8_t>(
            input.ConsumeIntegralInRange<std::size_t>(0, longestPayload));
        payload.shrink_to_fit(); // so that a read beyond its end is seen
        const auto header = usbguards::PayloadHeader::of(payload);
        if (!meter.accept(header, payload.size())) {
            continue;
        }
        expected.clear();
        libuvc.process(payload);
        const auto ended = boundaries.follow(header, payload, ++now);
        if (ended.size() != expected.size()) {
            std::abort();
        }
        for (std::size_t i = 0; i < ended.size(); ++i) {
            const PayloadTimes& times = ended[i].times;
            if (ended[i].sequence != expected[i].first || times.bytes != expected[i].second ||
                times.first <= lastEnd || times.last < times.first || times.last > now) {
                std::abort();
            }
            lastEnd = times.last;
        }
    }
    return 0;
}
