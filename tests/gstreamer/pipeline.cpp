#include "pipeline.h"

#include <gtest/gtest.h>

namespace
{

GstClockTime toGst(std::chrono::milliseconds time)
{
    return static_cast<GstClockTime>(time.count()) * GST_MSECOND;
}

} // namespace

Pipeline::Pipeline(const std::string& description)
{
    GError* error = nullptr;
    m_pipeline = gst_parse_launch(description.c_str(), &error);
    if (error) {
        ADD_FAILURE() << description << ": " << error->message;
        g_error_free(error);
    }
    if (!GST_IS_PIPELINE(m_pipeline)) {
        GstElement* const only = m_pipeline;
        m_pipeline = gst_pipeline_new(nullptr);
        gst_bin_add(GST_BIN(m_pipeline), only);
    }
}

Pipeline::~Pipeline()
{
    setState(GST_STATE_NULL);
    gst_object_unref(m_pipeline);
}

GstElement* Pipeline::element(const char* name) const
{
    GstElement* const found = gst_bin_get_by_name(GST_BIN(m_pipeline), name);
    gst_object_unref(found); // the pipeline holds it
    return found;
}

GstStateChangeReturn Pipeline::setState(GstState state)
{
    return gst_element_set_state(m_pipeline, state);
}

void Pipeline::play()
{
    EXPECT_NE(setState(GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
}

MessagePtr Pipeline::message(GstMessageType types, std::chrono::milliseconds longest)
{
    GstBus* const bus = gst_element_get_bus(m_pipeline);
    MessagePtr message(gst_bus_timed_pop_filtered(bus, toGst(longest), types));
    gst_object_unref(bus);
    return message;
}

std::string Pipeline::runToEnd()
{
    play();
    const MessagePtr last =
        message(static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    if (!last) {
        return "no end";
    }
    return GST_MESSAGE_TYPE(last.get()) == GST_MESSAGE_EOS ? "" : textOf(last.get());
}

std::string Pipeline::errorText()
{
    const MessagePtr error = message(GST_MESSAGE_ERROR);
    return error ? textOf(error.get()) : "";
}

bool Pipeline::waitForEvent(const std::string& event)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < end) {
        const MessagePtr next = message(
            static_cast<GstMessageType>(GST_MESSAGE_ELEMENT | GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        if (!next || GST_MESSAGE_TYPE(next.get()) != GST_MESSAGE_ELEMENT) {
            ADD_FAILURE() << (next ? textOf(next.get()) : "no message");
            return false;
        }
        const GstStructure* structure = gst_message_get_structure(next.get());
        if (gst_structure_has_name(structure, "zrn-camera") &&
            event == gst_structure_get_string(structure, "event")) {
            return true;
        }
    }
    return false;
}

SamplePtr Pipeline::pull(const char* sink, std::chrono::milliseconds longest)
{
    GstSample* sample = nullptr;
    g_signal_emit_by_name(element(sink), "try-pull-sample", toGst(longest), &sample);
    return SamplePtr(sample);
}

std::string textOf(GstMessage* message)
{
    GError* error = nullptr;
    gchar* details = nullptr;
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
        gst_message_parse_error(message, &error, &details);
        break;
    case GST_MESSAGE_WARNING:
        gst_message_parse_warning(message, &error, &details);
        break;
    default:
        return GST_MESSAGE_TYPE_NAME(message);
    }
    const std::string text = std::string(error->message) + " | " + (details ? details : "");
    g_error_free(error);
    g_free(details);
    return text;
}

std::pair<GstClockTime, std::uint64_t> lossOf(GstMessage* message)
{
    guint64 time = 0;
    guint64 dropped = 0;
    gst_message_parse_qos(message, nullptr, &time, nullptr, nullptr, nullptr);
    gst_message_parse_qos_stats(message, nullptr, nullptr, &dropped);
    return {time, dropped};
}
