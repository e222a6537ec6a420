#include "messages.h"

namespace zrngst
{
namespace
{

GstResourceError codeOf(const zrn::Error& error)
{
    if (error.name() == "InUse" || error.name() == "NoneFree") {
        return GST_RESOURCE_ERROR_BUSY;
    }
    if (error.name() == "NoPermission") {
        return GST_RESOURCE_ERROR_NOT_AUTHORIZED;
    }
    return error.kind() == zrn::Error::Kind::NoCamera ? GST_RESOURCE_ERROR_NOT_FOUND
                                                      : GST_RESOURCE_ERROR_FAILED;
}

void post(GstElement* element, GstMessageType type, const zrn::Error& error)
{
    std::string text = error.what();
    if (!error.remedy().empty()) {
        text += ": " + error.remedy();
    }
    const std::string details = error.name() + (error.tried().empty() ? "" : ", ") + error.tried();
    gst_element_message_full(element, type, GST_RESOURCE_ERROR, codeOf(error),
                             g_strdup(text.c_str()), g_strdup(details.c_str()), __FILE__,
                             GST_FUNCTION, __LINE__);
}

const char* nameOf(zrn::StreamEvent::Kind kind)
{
    switch (kind) {
    case zrn::StreamEvent::Kind::Lost:
        return "lost";
    case zrn::StreamEvent::Kind::Refused:
        return "refused";
    case zrn::StreamEvent::Kind::Restarted:
        return "restarted";
    case zrn::StreamEvent::Kind::Back:
        break;
    }
    return "back";
}

} // namespace

void postError(GstElement* element, const zrn::Error& error)
{
    post(element, GST_MESSAGE_ERROR, error);
}

void postWarning(GstElement* element, const zrn::Error& error)
{
    post(element, GST_MESSAGE_WARNING, error);
}

void postEvent(GstElement* element, const zrn::Camera& camera, const zrn::StreamEvent& event)
{
    const zrn::Outage& outage = event.outage;
    GstStructure* structure = gst_structure_new(
        "zrn-camera", "event", G_TYPE_STRING, nameOf(event.kind), "serial", G_TYPE_STRING,
        camera.facts().serial.c_str(), "port", G_TYPE_STRING, camera.port().c_str(), "cause",
        G_TYPE_STRING, zrn::nameOf(outage.cause), "repair", G_TYPE_STRING,
        zrn::nameOf(outage.repair), "reason", G_TYPE_STRING, event.reason.c_str(), "seconds",
        G_TYPE_DOUBLE, outage.seconds, "missing", G_TYPE_UINT64, outage.missing, "missing-is-exact",
        G_TYPE_BOOLEAN, gboolean{outage.isMissingExact}, nullptr);
    gst_element_post_message(element, gst_message_new_element(GST_OBJECT(element), structure));
}

void postLoss(GstElement* element, GstClockTime runningTime, GstClockTime duration,
              std::uint64_t processed, std::uint64_t missing)
{
    constexpr gboolean isLive = TRUE;
    GstMessage* message = gst_message_new_qos(GST_OBJECT(element), isLive, runningTime, runningTime,
                                              runningTime, duration);
    gst_message_set_qos_stats(message, GST_FORMAT_BUFFERS, processed, missing);
    gst_element_post_message(element, message);
}

GstStructure* structureOf(const zrn::StreamCounters& counters)
{
    return gst_structure_new(
        "zrn-statistics", "frames", G_TYPE_UINT64, counters.frames, "lost-camera", G_TYPE_UINT64,
        counters.lost.camera, "lost-library", G_TYPE_UINT64, counters.lost.library, "lost-ring",
        G_TYPE_UINT64, counters.lost.ring, "lost-queue", G_TYPE_UINT64, counters.lost.queue, "gaps",
        G_TYPE_UINT64, counters.gaps, "repeated", G_TYPE_UINT64, counters.repeated, "renumberings",
        G_TYPE_UINT64, counters.renumberings, "timeouts", G_TYPE_UINT64, counters.timeouts,
        "unusable", G_TYPE_UINT64, counters.unusable, nullptr);
}

zrn::Error outageOf(const zrn::Camera& camera, const zrn::Outage& outage)
{
    const std::string name = "the camera " + camera.facts().serial + " at port " + camera.port();
    const bool isGone = outage.cause == zrn::Outage::Cause::Gone;
    return {zrn::Error::Kind::NoCamera, isGone ? "Gone" : "Silent",
            name + (isGone ? " has left the bus" : " sends no frames"),
            isGone ? "plug it in again; with reconnect=true the stream goes on by itself then"
                   : "replug it; with reconnect=true the stream is restarted by itself"};
}

} // namespace zrngst
