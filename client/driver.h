#pragma once

#include "client/bus.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class IFactory;

namespace zrn
{

/// The driver. A process has each plugin file loaded once, however often load() is called, until
/// the last owner lets go; cameras and frames are owners. Cameras are opened one at a time by their
/// places on the bus, and all others are left alone: those of this process, and those of other
/// programs.
///
/// Thread safety: thread-safe, as long as nobody else enumerates with the factory. Where the driver
/// can choose, its factory is taken to the thread that opens a camera, and left on the one that
/// ends this object.
class Driver
{
public:
    /// Loads the driver, or gives the one that is loaded; waits for one that is being unloaded.
    /// @param file as findPlugin() takes it
    /// @throws Error
    static std::shared_ptr<Driver> load(const std::string& file = {});

    /// A driver of the program's own, and a bus of its own. Made on the thread that the factory
    /// lives in, and the only one for its factory meanwhile.
    Driver(std::shared_ptr<IFactory> factory, BusReaders bus);
    ~Driver();
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    [[nodiscard]] std::string name() const;
    [[nodiscard]] std::string version() const;
    /// The plugin's file; empty where it was not loaded from one.
    [[nodiscard]] const std::string& file() const { return m_file; }
    /// What the driver says of its guards: "in effect", "not needed", or why they are missing.
    /// Where no camera was opened before, it is asked to open one where there can be none.
    [[nodiscard]] std::string guards();

    /// Whether it can open cameras by themselves. Otherwise it can only open all at once, which
    /// closes those that are open.
    [[nodiscard]] bool canChoose() const { return m_canChoose; }
    /// Opens a camera, to be connected by its serial, which the bus then knows. @return the serial;
    /// empty when it could not be opened, as when another thread or program holds it.
    std::string open(const BusCamera& camera);
    /// Closes a camera that was opened. Nothing is sent to it.
    void close(const std::string& serial);
    /// Whether the serial that is known of a camera was not confirmed lately by opening it: one
    /// that misses a request gives a wrong serial.
    [[nodiscard]] bool isDoubtful(const BusCamera& camera) const;
    /// Opens all, which closes what is open. @return how many
    int openAll();
    /// The same, unless it was done already.
    int openAllOnce();

    [[nodiscard]] const BusReaders& bus() const { return m_bus; }

    /// The driver as the host contract has it, for a host that goes beyond this library.
    [[nodiscard]] IFactory& factory() const { return *m_factory; }

private:
    int enumerateAll();
    [[nodiscard]] bool isStillFree(const BusCamera& camera) const;

    const std::shared_ptr<IFactory> m_factory;
    const BusReaders m_bus;
    const bool m_canChoose;
    std::string m_file;
    mutable std::mutex m_mutex; // one thread at a time uses the factory; guards what follows
    int m_opened = -1;          // cameras that were opened all at once; -1: not yet
    /// When a camera whose serial was known was opened for it again, by place.
    std::map<std::string, std::chrono::steady_clock::time_point> m_checks;
};

} // namespace zrn
