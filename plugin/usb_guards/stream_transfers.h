#pragma once

#include "frame_boundaries.h"
#include "owned_objects.h"
#include "payload_meter.h"
#include "stream_times.h"

#include <libusb.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>

namespace usbguards
{

/// Stands between libuvc and libusb for the transfers of video streams, and keeps the promise that
/// libuvc relies on without checking: every transfer that it holds is either in flight or reported
/// as ended.
///
/// libuvc frees a transfer when its callback reports the end, and waits for that when a stream
/// stops. It overlooks a resubmission that fails, takes a transfer that was never submitted for
/// one in flight, and frees one that is still in flight when cancelling it meets an absent device.
///
/// It also reads the payloads before libuvc does: withholds those that libuvc could not take, and
/// notes when the frames of a watched stream came.
///
/// Thread-safe. No lock is held while a callback of libuvc runs.
class StreamTransfers
{
public:
    /// Never destroyed: libuvc's threads may outlive the static objects of a process that exits.
    static StreamTransfers& instance();

    static bool isStream(const libusb_transfer& transfer);

    /// Submits a transfer. One that was in flight before and cannot be again ends at once: its
    /// callback runs, and may free it. That counts as success.
    int submit(libusb_transfer* transfer);

    /// @return NOT_FOUND when the end of the transfer is to come, another error when there is
    /// nothing to wait for.
    int cancel(libusb_transfer* transfer);

    /// Whether the transfer has been submitted, or tried to, and not been freed since.
    bool knows(libusb_transfer* transfer);

    /// The transfer is about to be freed.
    void forget(libusb_transfer* transfer);

private:
    /// The payloads of one stream. Those of its transfers come one after another: libusb reports
    /// one transfer of a context at a time.
    struct Flow {
        PayloadMeter meter;
        FrameBoundaries boundaries;
        std::shared_ptr<StreamTimes> times; ///< null: not watched

        /// Withholds the payloads that libuvc must not see, by making them empty.
        void screen(libusb_transfer& transfer);
        bool accept(std::span<const std::uint8_t> payload, std::size_t capacity, std::int64_t now);
    };

    struct Record {
        libusb_transfer_cb_fn callback = nullptr; ///< libuvc's own
        std::shared_ptr<Flow> flow;               ///< of the stream

        std::mutex mutex; ///< held across submitting and cancelling; guards what follows
        bool wasSubmitted = false;
        bool isCancelled = false;
    };

    static void onCompletion(libusb_transfer* transfer);

    std::shared_ptr<Record> find(libusb_transfer* transfer);
    std::shared_ptr<Record> findOrAdd(libusb_transfer* transfer);
    /// @param watch of a stream that begins with this transfer
    std::shared_ptr<Record> add(libusb_transfer* transfer, StreamWatch watch);

    StreamTransfers() = default;
    ~StreamTransfers() = default;

    std::mutex m_mutex; ///< guards the maps, which hold no memory while they are empty
    std::map<libusb_transfer*, std::shared_ptr<Record>> m_records;
    std::map<void*, std::weak_ptr<Flow>> m_flows; ///< by libuvc's stream
};

} // namespace usbguards
