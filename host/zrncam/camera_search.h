#pragma once

#include "client/bus.h"
#include "common/device_opener.h"
#include "tool_error.h"

#include <QString>

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

/// Which camera the user wants: at most one of the fields is set; none means any.
struct CameraChoice {
    QString serial; ///< as the driver gives it
    std::string port;
    int index = -1; ///< among the cameras on the bus; -1: not given
};

/// Finds the camera that the user wants among those on the bus, and opens it. No other camera is
/// opened, except where a serial is asked for that no camera is known to have: then those whose
/// serial is not known yet are opened in turn, and given back; after them the other free ones, once
/// in a while, because a camera that misses a request gives a wrong serial.
///
/// Thread safety: thread-safe.
class CameraSearch
{
public:
    /// @param quiet says nothing while it waits
    CameraSearch(zrn::Bus& bus, zrnhost::DeviceOpener& opener, bool quiet)
        : m_bus(bus)
        , m_opener(opener)
        , m_quiet(quiet)
    {
    }

    /// Opens the camera. Tries again for a while when other programs are in the way, who may only
    /// be looking for cameras themselves. @return its serial. @throws ToolError
    QString find(const CameraChoice& choice);

    /// One try. @return the serial, or nothing.
    std::optional<QString> findNow(const CameraChoice& choice);

    /// The ports of all cameras that nobody else uses, once there is one. @throws ToolError
    std::vector<std::string> freePorts();

private:
    /// The cameras that may be the one, in the order in which to try them. @throws ToolError
    std::vector<zrn::BusCamera> candidates(const CameraChoice& choice) const;
    std::optional<QString> open(const CameraChoice& choice,
                                const std::vector<zrn::BusCamera>& cameras);
    /// Repeats an attempt until it has a result or time is up. @throws ToolError
    template <typename Attempt>
    auto persist(const CameraChoice& choice, const Attempt& attempt);
    /// Whether a serial has been looked for in vain for longer than others look for cameras.
    bool isLongSought(const QString& serial) const;
    /// Whether the serial that is known of a camera has not been confirmed lately.
    bool isDoubtful(const zrn::BusCamera& camera) const;
    /// Why none of the candidates can be had.
    ToolError failureOf(const CameraChoice& choice) const;

    zrn::Bus& m_bus;
    zrnhost::DeviceOpener& m_opener;
    const bool m_quiet;
    mutable std::mutex m_mutex; ///< guards m_checks and m_begins
    /// Since when serials have been looked for in vain.
    std::map<QString, std::chrono::steady_clock::time_point> m_begins;
    /// When a camera whose serial was known was asked for it again, by place.
    std::map<std::string, std::chrono::steady_clock::time_point> m_checks;
};

/// That there is none.
ToolError noCameraOnBus();

/// "the camera ZR4711 at port 1-2".
QString nameOf(const zrn::BusCamera& camera);

/// Why a camera cannot be opened, and what to do about it, speaking of this one alone.
ToolError refusalOf(const zrn::BusCamera& camera);
