#include "owned_objects.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace usbguards
{

OwnedObjects& OwnedObjects::instance()
{
    alignas(OwnedObjects) static std::byte storage[sizeof(OwnedObjects)];
    static auto* const objects = new (storage) OwnedObjects;
    return *objects;
}

OwnedObjects::DriverCall::DriverCall()
{
    OwnedObjects& objects = instance();
    const std::lock_guard locker(objects.m_mutex);
    objects.m_callingThreads.push_back(pthread_self());
}

OwnedObjects::DriverCall::~DriverCall()
{
    OwnedObjects& objects = instance();
    const std::lock_guard locker(objects.m_mutex);
    std::vector<pthread_t>& threads = objects.m_callingThreads;
    threads.erase(std::ranges::find(threads, pthread_self()));
    if (threads.empty()) {
        threads = std::vector<pthread_t>(); // unlike {}, gives the memory back
    }
}

bool OwnedObjects::isDriverCalling()
{
    const std::lock_guard locker(m_mutex);
    return std::ranges::find(m_callingThreads, pthread_self()) != m_callingThreads.end();
}

void OwnedObjects::add(libusb_context* context)
{
    const std::lock_guard locker(m_mutex);
    m_contexts.insert(context);
}

bool OwnedObjects::owns(libusb_context* context)
{
    const std::lock_guard locker(m_mutex);
    return m_contexts.contains(context);
}

void OwnedObjects::forget(libusb_context* context)
{
    const std::lock_guard locker(m_mutex);
    m_contexts.erase(context);
}

void OwnedObjects::add(libusb_device_handle* handle)
{
    auto record = std::make_shared<OwnedHandle>();
    const std::lock_guard locker(m_mutex);
    m_handles.insert_or_assign(handle, std::move(record));
}

std::shared_ptr<OwnedHandle> OwnedObjects::find(libusb_device_handle* handle)
{
    const std::lock_guard locker(m_mutex);
    const auto found = m_handles.find(handle);
    return found == m_handles.end() ? nullptr : found->second;
}

void OwnedObjects::forget(libusb_device_handle* handle)
{
    const std::lock_guard locker(m_mutex);
    m_handles.erase(handle);
}

bool OwnedObjects::isEmpty()
{
    const std::lock_guard locker(m_mutex);
    return m_contexts.empty() && m_handles.empty();
}

} // namespace usbguards
