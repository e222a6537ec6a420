#include "stream_transfers.h"

#include "original_usb.h"
#include "owned_objects.h"

#include <chrono>
#include <cstddef>
#include <new>
#include <span>
#include <utility>

namespace usbguards
{
namespace
{

std::span<const std::uint8_t> bytes(const unsigned char* data, int size)
{
    return {data, size > 0 ? static_cast<std::size_t>(size) : 0};
}

std::int64_t monotonicTime()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

/// For the stream that starts on this handle.
StreamWatch takeWatch(libusb_device_handle* handle)
{
    const std::shared_ptr<OwnedHandle> record = OwnedObjects::instance().find(handle);
    if (!record) {
        return {};
    }
    const std::lock_guard locker(record->mutex);
    return std::exchange(record->watch, {});
}

/// How a transfer ends that could not be submitted again.
libusb_transfer_status endStatus(int error)
{
    switch (error) {
    case LIBUSB_ERROR_NO_DEVICE:
        return LIBUSB_TRANSFER_NO_DEVICE;
    case LIBUSB_ERROR_INTERRUPTED:
        return LIBUSB_TRANSFER_CANCELLED;
    default:
        return LIBUSB_TRANSFER_ERROR;
    }
}

} // namespace

bool StreamTransfers::Flow::accept(std::span<const std::uint8_t> payload, std::size_t capacity,
                                   std::int64_t now)
{
    const PayloadHeader header = PayloadHeader::of(payload);
    if (!meter.accept(header, capacity)) {
        return false;
    }
    if (times) {
        for (const FrameBoundaries::EndedFrame& frame : boundaries.follow(header, payload, now)) {
            times->note(frame.sequence, frame.times);
        }
    }
    return true;
}

void StreamTransfers::Flow::screen(libusb_transfer& transfer)
{
    const std::int64_t now = monotonicTime();
    if (transfer.type == LIBUSB_TRANSFER_TYPE_BULK) {
        if (!accept(bytes(transfer.buffer, transfer.actual_length),
                    static_cast<std::size_t>(transfer.length), now)) {
            transfer.actual_length = 0;
        }
        return;
    }
    // libuvc gives all packets of a transfer the same length.
    const unsigned char* data = transfer.buffer;
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        libusb_iso_packet_descriptor& packet = transfer.iso_packet_desc[i];
        if (packet.status == LIBUSB_TRANSFER_COMPLETED &&
            !accept(bytes(data, static_cast<int>(packet.actual_length)), packet.length, now)) {
            packet.actual_length = 0;
        }
        data += packet.length;
    }
}

StreamTransfers& StreamTransfers::instance()
{
    alignas(StreamTransfers) static std::byte storage[sizeof(StreamTransfers)];
    static auto* const transfers = new (storage) StreamTransfers;
    return *transfers;
}

bool StreamTransfers::isStream(const libusb_transfer& transfer)
{
    return transfer.type == LIBUSB_TRANSFER_TYPE_BULK ||
           transfer.type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
}

int StreamTransfers::submit(libusb_transfer* transfer)
{
    const std::shared_ptr<Record> record = findOrAdd(transfer);
    int result = LIBUSB_SUCCESS;
    {
        const std::lock_guard locker(record->mutex);
        if (record->isCancelled) {
            result = LIBUSB_ERROR_INTERRUPTED;
        } else if (record->wasSubmitted && transfer->status == LIBUSB_TRANSFER_STALL) {
            // A halted endpoint refuses every transfer at once, so submitting goes round in
            // circles.
            result = LIBUSB_ERROR_PIPE;
        } else {
            result = originalUsb().submitTransfer(transfer);
        }
        if (result == LIBUSB_SUCCESS) {
            record->wasSubmitted = true;
            return result;
        }
        if (!record->wasSubmitted) {
            return result;
        }
    }
    transfer->status = endStatus(result);
    transfer->actual_length = 0;
    record->callback(transfer);
    // libuvc knows. Were it told again, it would look at a stream that the report may have ended.
    return LIBUSB_SUCCESS;
}

int StreamTransfers::cancel(libusb_transfer* transfer)
{
    const std::shared_ptr<Record> record = find(transfer);
    if (!record) {
        return LIBUSB_ERROR_OTHER;
    }
    const std::lock_guard locker(record->mutex);
    if (!record->wasSubmitted) {
        return LIBUSB_ERROR_OTHER;
    }
    record->isCancelled = true;
    // libusb reports the end of what is in flight whatever cancelling it meets.
    return originalUsb().cancelTransfer(transfer) == LIBUSB_SUCCESS ? LIBUSB_SUCCESS
                                                                    : LIBUSB_ERROR_NOT_FOUND;
}

bool StreamTransfers::knows(libusb_transfer* transfer)
{
    return find(transfer) != nullptr;
}

void StreamTransfers::forget(libusb_transfer* transfer)
{
    const std::lock_guard locker(m_mutex);
    if (m_records.erase(transfer) > 0) {
        std::erase_if(m_flows, [](const auto& flow) { return flow.second.expired(); });
    }
}

void StreamTransfers::onCompletion(libusb_transfer* transfer)
{
    const std::shared_ptr<Record> record = instance().find(transfer);
    if (!record) {
        return;
    }
    if (transfer->status == LIBUSB_TRANSFER_COMPLETED) {
        // Before libuvc knows of the frames that end here.
        record->flow->screen(*transfer);
    }
    record->callback(transfer);
}

std::shared_ptr<StreamTransfers::Record> StreamTransfers::find(libusb_transfer* transfer)
{
    const std::lock_guard locker(m_mutex);
    const auto found = m_records.find(transfer);
    return found == m_records.end() ? nullptr : found->second;
}

std::shared_ptr<StreamTransfers::Record> StreamTransfers::findOrAdd(libusb_transfer* transfer)
{
    std::shared_ptr<Record> known = find(transfer);
    return known ? known : add(transfer, takeWatch(transfer->dev_handle));
}

std::shared_ptr<StreamTransfers::Record> StreamTransfers::add(libusb_transfer* transfer,
                                                              StreamWatch watch)
{
    const std::lock_guard locker(m_mutex);
    std::shared_ptr<Record>& record = m_records[transfer];
    if (!record) {
        record = std::make_shared<Record>();
        record->callback = transfer->callback;
        std::weak_ptr<Flow>& known = m_flows[transfer->user_data];
        record->flow = known.lock();
        // A watch is for a new stream. libuvc may make it where another one was, whose last
        // transfer ends only now.
        if (watch.times || !record->flow) {
            record->flow = std::make_shared<Flow>();
            record->flow->boundaries = FrameBoundaries(watch.frameLimit);
            record->flow->times = std::move(watch.times);
            known = record->flow;
        }
        transfer->callback = onCompletion;
    }
    return record;
}

} // namespace usbguards
