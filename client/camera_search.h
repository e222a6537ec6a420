#pragma once

#include "client/driver.h"
#include "client/error.h"

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace zrn
{

/// Which camera is wanted; with no field set, the first that is free.
struct CameraChoice {
    std::string serial{}; ///< as the driver gives it, as "ZR4711"
    std::string port{};   ///< as "1-2.3"; beside a serial, where it was last
    int index = -1;       ///< among the cameras on the bus; -1: not given
};

/// How long to try, and whom to tell.
struct SearchPatience {
    /// How long other programs may be in the way, who may only be looking for cameras themselves.
    std::chrono::milliseconds longest{3000};
    /// Called once, on the caller's thread, when it takes a second: why the camera cannot be had.
    std::function<void(const Error&)> onWaiting{};
    /// Ends it early.
    std::stop_token stop{};
};

/// Finds the camera that is wanted among those on the bus, and opens it. No other camera is
/// opened, except where a serial is asked for that no camera is known to have: then those whose
/// serial is not known yet are opened in turn, and given back; when there are none, or two seconds
/// were in vain, the other free ones, too, once in a while, because a camera that misses a request
/// gives a wrong serial.
///
/// Thread safety: thread-safe.
class CameraSearch
{
public:
    /// @param driver one that can choose; stays
    explicit CameraSearch(Driver& driver)
        : m_driver(driver)
    {
    }

    /// Opens the camera. @throws Error
    BusCamera find(const CameraChoice& choice, const SearchPatience& patience);

    /// One try. @throws Error
    BusCamera findNow(const CameraChoice& choice);

    /// The ports of all cameras that nobody else uses, once there is one. @throws Error
    std::vector<std::string> freePorts(const SearchPatience& patience) const;

private:
    /// The cameras that may be the one, in the order in which to try them. @throws Error
    std::vector<BusCamera> candidates(const CameraChoice& choice) const;
    std::optional<BusCamera> open(const CameraChoice& choice);
    void noteSought(const std::string& serial);
    void noteFound(const std::string& serial);
    /// Whether a serial has been looked for in vain for longer than others look for cameras.
    bool isLongSought(const std::string& serial) const;
    /// Why none of the candidates can be had.
    Error failureOf(const CameraChoice& choice) const;

    Driver& m_driver;
    mutable std::mutex m_mutex; // guards m_begins
    /// Since when serials have been looked for in vain.
    std::map<std::string, std::chrono::steady_clock::time_point> m_begins;
};

/// The number inside a serial as the driver gives it: "ZR4711" is the number 4711.
std::string serialNumberOf(const std::string& serial);

/// The serial as the driver wants it, from either form of it.
std::string serialFromUser(const std::string& text);

/// That there is none.
Error noCameraOnBus();

/// Whether an error of a search says that the camera is not on the bus, not why it cannot be had.
bool isAbsence(const Error& error);

/// "the camera ZR4711 at port 1-2".
std::string nameOf(const BusCamera& camera);

/// Why a camera cannot be opened, and what to do about it, speaking of this one alone.
Error refusalOf(const BusCamera& camera);

} // namespace zrn
