#include "stream_transfers.h"

#include "original_usb.h"

#include <cstddef>
#include <new>

namespace usbguards
{
namespace
{

std::span<const std::uint8_t> bytes(const unsigned char* data, int size)
{
    return {data, size > 0 ? static_cast<std::size_t>(size) : 0};
}

/// Withholds the payloads that libuvc must not see, by making them empty.
void screenPayloads(libusb_transfer& transfer, PayloadMeter& meter)
{
    if (transfer.type == LIBUSB_TRANSFER_TYPE_BULK) {
        if (!meter.accept(bytes(transfer.buffer, transfer.actual_length),
                          static_cast<std::size_t>(transfer.length))) {
            transfer.actual_length = 0;
        }
        return;
    }
    // libuvc gives all packets of a transfer the same length.
    const unsigned char* data = transfer.buffer;
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        libusb_iso_packet_descriptor& packet = transfer.iso_packet_desc[i];
        if (packet.status == LIBUSB_TRANSFER_COMPLETED &&
            !meter.accept(bytes(data, static_cast<int>(packet.actual_length)), packet.length)) {
            packet.actual_length = 0;
        }
        data += packet.length;
    }
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
        std::erase_if(m_meters, [](const auto& meter) { return meter.second.expired(); });
    }
}

void StreamTransfers::onCompletion(libusb_transfer* transfer)
{
    const std::shared_ptr<Record> record = instance().find(transfer);
    if (!record) {
        return;
    }
    if (transfer->status == LIBUSB_TRANSFER_COMPLETED) {
        screenPayloads(*transfer, *record->meter);
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
    const std::lock_guard locker(m_mutex);
    std::shared_ptr<Record>& record = m_records[transfer];
    if (!record) {
        record = std::make_shared<Record>();
        record->callback = transfer->callback;
        std::weak_ptr<PayloadMeter>& known = m_meters[transfer->user_data];
        record->meter = known.lock();
        if (!record->meter) {
            record->meter = std::make_shared<PayloadMeter>();
            known = record->meter;
        }
        transfer->callback = onCompletion;
    }
    return record;
}

} // namespace usbguards
