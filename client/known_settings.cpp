#include "client/known_settings.h"

#include <algorithm>

namespace zrn
{

void KnownSettings::note(SettingChange setting, const std::function<void()>& onNewest)
{
    const std::lock_guard lock(m_mutex);
    const auto known = std::ranges::find(m_settings, setting.key, &SettingChange::key);
    const bool isKnown = known != m_settings.end();
    if (isKnown && known->time > setting.time) {
        return;
    }
    if (onNewest) {
        onNewest();
    }
    if (isKnown) {
        if (known->value == setting.value) {
            return;
        }
        m_settings.erase(known);
    }
    for (const Watcher& watcher : m_watchers) {
        watcher(setting);
    }
    m_settings.push_back(std::move(setting));
}

bool KnownSettings::areWatched() const
{
    const std::lock_guard lock(m_mutex);
    return !m_watchers.empty();
}

std::vector<std::string> KnownSettings::keys() const
{
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> keys;
    for (const SettingChange& known : m_settings) {
        keys.push_back(known.key);
    }
    return keys;
}

std::shared_ptr<void> KnownSettings::watch(const std::shared_ptr<KnownSettings>& settings,
                                           Watcher watcher)
{
    const std::lock_guard lock(settings->m_mutex);
    for (const SettingChange& known : settings->m_settings) {
        watcher(known);
    }
    const auto place = settings->m_watchers.insert(settings->m_watchers.end(), std::move(watcher));
    return {nullptr, [settings, place](std::nullptr_t) {
                const std::lock_guard ending(settings->m_mutex);
                settings->m_watchers.erase(place);
            }};
}

} // namespace zrn
