#pragma once

#include "client/bus.h"
#include "factory_interface.h"

#include <QString>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace zrnhost
{

/// Reads which cameras are on the bus.
using BusReader = std::function<std::vector<zrn::BusCamera>()>;

/// What a host reads of the bus, from any thread.
struct BusReaders {
    BusReader cameras;           ///< quickly
    BusReader camerasAndHolders; ///< and who uses them, which takes longer
    /// Notes the serial of a camera, which the readers then know.
    std::function<void(const zrn::BusCamera&, const std::string&)> remember;
};

/// The readers of this machine's bus.
BusReaders busReaders();

/// Opens cameras through a driver's factory by their places on the bus, one at a time, and leaves
/// all others alone: those of this process, and those of other programs.
///
/// Thread safety: thread-safe, as long as nobody else enumerates with the factory. Made on the
/// thread that the factory lives in, and the only one for its factory meanwhile: this object takes
/// the factory to the thread that opens a camera, and leaves it on the one that ends this object.
class DeviceOpener
{
public:
    /// @param readBus may be called from any thread; tells who uses a camera in any way
    DeviceOpener(IFactory& factory, BusReader readBus);
    ~DeviceOpener();
    DeviceOpener(const DeviceOpener&) = delete;
    DeviceOpener& operator=(const DeviceOpener&) = delete;

    /// Whether the driver has this ability. Without it a host can only enumerate everything.
    [[nodiscard]] bool canChoose() const { return m_canChoose; }

    /// Opens a camera, for connecting by its serial. @return the serial; empty when it could not be
    /// opened, as when another thread or program holds it.
    QString open(const zrn::BusCamera& camera);

    /// Closes a camera that was opened. Nothing is sent to it.
    void close(const QString& serial);

private:
    [[nodiscard]] bool isStillFree(const zrn::BusCamera& camera) const;

    IFactory& m_factory;
    const BusReader m_readBus;
    const bool m_canChoose;
    std::mutex m_mutex;
};

} // namespace zrnhost
