// The devices that applications find without knowing of cameras.

#include "pipeline.h"
#include "sent_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace
{

/// Other providers watch the same bus, with threads of their own.
void removeOtherProviders()
{
    GstRegistry* const registry = gst_registry_get();
    GList* const providers =
        gst_registry_get_feature_list(registry, GST_TYPE_DEVICE_PROVIDER_FACTORY);
    for (const GList* one = providers; one; one = one->next) {
        auto* const provider = static_cast<GstPluginFeature*>(one->data);
        if (g_strcmp0(gst_plugin_feature_get_name(provider), "zrndeviceprovider") != 0) {
            gst_registry_remove_feature(registry, provider);
        }
    }
    gst_plugin_feature_list_free(providers);
}

class Devices : public testing::Test
{
protected:
    static void SetUpTestSuite() { removeOtherProviders(); }

    Devices()
        : m_monitor(gst_device_monitor_new())
    {
        camera.restore();
        gst_device_monitor_add_filter(m_monitor, "Video/Source", nullptr);
    }
    ~Devices() override
    {
        gst_device_monitor_stop(m_monitor);
        gst_object_unref(m_monitor);
        camera.restore();
    }

    void start() const { EXPECT_TRUE(gst_device_monitor_start(m_monitor)); }

    /// The port of the device in the next message of this type, one of ours.
    std::string portOfNext(GstMessageType type) const
    {
        GstBus* const bus = gst_device_monitor_get_bus(m_monitor);
        const MessagePtr message(gst_bus_timed_pop_filtered(bus, 20 * GST_SECOND, type));
        gst_object_unref(bus);
        if (!message) {
            return "";
        }
        GstDevice* device = nullptr;
        if (type == GST_MESSAGE_DEVICE_ADDED) {
            gst_message_parse_device_added(message.get(), &device);
        } else {
            gst_message_parse_device_removed(message.get(), &device);
        }
        std::string port = portOf(device);
        gst_object_unref(device);
        return port;
    }

    static std::string portOf(GstDevice* device)
    {
        GstStructure* const properties = gst_device_get_properties(device);
        const std::string port = gst_structure_get_string(properties, "port");
        gst_structure_free(properties);
        return port;
    }

    /// The only device; owned by the caller.
    GstDevice* onlyDevice() const
    {
        GList* const devices = gst_device_monitor_get_devices(m_monitor);
        EXPECT_EQ(g_list_length(devices), 1U);
        auto* device = devices ? static_cast<GstDevice*>(gst_object_ref(devices->data)) : nullptr;
        g_list_free_full(devices, gst_object_unref);
        return device;
    }

    VirtualCamera camera;

private:
    GstDeviceMonitor* const m_monitor;
};

TEST_F(Devices, AreListedWithoutOpeningACamera)
{
    const std::uint64_t requests = camera.counter("controlRequests");
    for (const bool isStarted : {false, true}) {
        if (isStarted) {
            start();
        }
        GstDevice* const device = onlyDevice();
        ASSERT_TRUE(device);
        EXPECT_EQ(portOf(device), "1-1");
        gst_object_unref(device);
    }
    EXPECT_EQ(camera.counter("controlRequests"), requests);
}

TEST_F(Devices, ArriveAndLeave)
{
    start();
    EXPECT_EQ(portOfNext(GST_MESSAGE_DEVICE_ADDED), "1-1");
    using Clock = std::chrono::steady_clock;
    Clock::duration shortest = std::chrono::minutes(1); // on a machine that does other things, too
    for (int i = 0; i < 5; ++i) {
        const auto begin = Clock::now();
        camera.unplug();
        EXPECT_EQ(portOfNext(GST_MESSAGE_DEVICE_REMOVED), "1-1");
        const auto away = Clock::now();
        camera.restore();
        EXPECT_EQ(portOfNext(GST_MESSAGE_DEVICE_ADDED), "1-1");
        shortest = std::min(shortest, std::max(away - begin, Clock::now() - away));
    }
    EXPECT_LE(shortest, std::chrono::seconds(1)) << "to tell of either";
}

TEST_F(Devices, MakeElementsForTheirCameras)
{
    GstDevice* const device = onlyDevice();
    ASSERT_TRUE(device);
    GstElement* const source = gst_device_create_element(device, nullptr);
    gst_object_unref(device);
    ASSERT_TRUE(source);
    gchar* port = nullptr;
    g_object_get(source, "port", &port, nullptr);
    EXPECT_STREQ(port, "1-1");
    g_free(port);

    const Pipeline pipeline("fakesink name=sink");
    gst_bin_add(GST_BIN(pipeline.get()), source);
    ASSERT_TRUE(gst_element_link(source, pipeline.element("sink")));
    EXPECT_NE(gst_element_set_state(pipeline.get(), GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    EXPECT_EQ(gst_element_get_state(pipeline.get(), nullptr, nullptr, 20 * GST_SECOND),
              GST_STATE_CHANGE_SUCCESS);
}

} // namespace
