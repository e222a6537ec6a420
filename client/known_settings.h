#pragma once

#include "client/camera.h"

#include <list>
#include <mutex>

namespace zrn
{

/// What the settings of a camera are known to be, and who is told.
///
/// Thread safety: thread-safe.
class KnownSettings
{
public:
    using Watcher = std::function<void(const SettingChange&)>;

    /// Tells of it, unless it is known to be so, or older than what is known.
    /// @param onNewest called before, unless it is older; one call at a time
    void note(SettingChange setting, const std::function<void()>& onNewest = {});
    [[nodiscard]] bool areWatched() const;
    /// In the order of their last changes.
    [[nodiscard]] std::vector<std::string> keys() const;

    /// Tells of all that is known, and then of what becomes so.
    /// @return ends it; waits for a call of the watcher
    static std::shared_ptr<void> watch(const std::shared_ptr<KnownSettings>& settings,
                                       Watcher watcher);

private:
    mutable std::mutex m_mutex;            // guards what follows; held while watchers run
    std::vector<SettingChange> m_settings; // the last change of each, in the order of these
    std::list<Watcher> m_watchers;
};

} // namespace zrn
