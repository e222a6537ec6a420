#include "zrn_src.h"

#include "frame_source.h"
#include "messages.h"

#include <cstring>
#include <functional>

GST_DEBUG_CATEGORY_STATIC(zrn_src_debug);
#define GST_CAT_DEFAULT zrn_src_debug

namespace
{

using zrngst::FrameSource;
using zrngst::SourceSettings;

struct ZrnSrc {
    GstElement element;
    FrameSource* source;
};

struct ZrnSrcClass {
    GstElementClass parent;
};

enum Property : guint {
    SerialProperty = 1,
    PortProperty,
    QueuePolicyProperty,
    QueueSizeProperty,
    BayerProperty,
    ReconnectProperty,
    NumBuffersProperty,
    StatisticsProperty,
    FirstControl, ///< from here on those of zrngst::controls()
};

constexpr const char* bayerOrders[] = {"", "bggr", "gbrg", "grbg", "rggb"};

GstStaticPadTemplate padTemplate(const char* name)
{
    return {
        name, GST_PAD_SRC, GST_PAD_ALWAYS,
        GST_STATIC_CAPS("video/x-raw, format = GRAY8, width = [ 1, max ], height = [ 1, max ], "
                        "framerate = [ 0/1, 2147483647/1 ]; "
                        "video/x-bayer, format = { bggr, gbrg, grbg, rggb }, width = [ 1, max ], "
                        "height = [ 1, max ], framerate = [ 0/1, 2147483647/1 ]")};
}

GType queuePolicyType()
{
    static const GEnumValue values[] = {
        {static_cast<int>(zrn::QueuePolicy::Newest), "The newest frame replaces one that waits",
         "newest"},
        {static_cast<int>(zrn::QueuePolicy::All), "The oldest frame makes room", "all"},
        {static_cast<int>(zrn::QueuePolicy::Block),
         "Frames wait in the driver's cache until there is room", "block"},
        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("ZrnSrcQueuePolicy", values);
    return type;
}

GType bayerType()
{
    static const GEnumValue values[] = {{0, "Grey, no colour mosaic", "none"},
                                        {1, "Blue and green in the first row", "bggr"},
                                        {2, "Green and blue in the first row", "gbrg"},
                                        {3, "Green and red in the first row", "grbg"},
                                        {4, "Red and green in the first row", "rggb"},
                                        {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("ZrnSrcBayer", values);
    return type;
}

} // namespace

G_DEFINE_TYPE(ZrnSrc, zrn_src, GST_TYPE_ELEMENT)

namespace
{

FrameSource& sourceOf(gpointer element)
{
    return *reinterpret_cast<ZrnSrc*>(element)->source;
}

/// Runs what may fail without consequences for the stream.
void orWarn(gpointer element, const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const zrn::Error& error) {
        zrngst::postWarning(GST_ELEMENT(element), error);
    }
}

const char* orEmpty(const char* text)
{
    return text ? text : "";
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    FrameSource& source = sourceOf(object);
    if (id >= FirstControl) {
        orWarn(object, [&] { source.setControl(id - FirstControl, g_value_get_int(value)); });
        return;
    }
    source.change([=](SourceSettings& settings) {
        switch (id) {
        case SerialProperty:
            settings.serial = orEmpty(g_value_get_string(value));
            break;
        case PortProperty:
            settings.port = orEmpty(g_value_get_string(value));
            break;
        case QueuePolicyProperty:
            settings.queuePolicy = static_cast<zrn::QueuePolicy>(g_value_get_enum(value));
            break;
        case QueueSizeProperty:
            settings.queueSize = g_value_get_uint(value);
            break;
        case BayerProperty:
            settings.bayer = bayerOrders[g_value_get_enum(value)];
            break;
        case ReconnectProperty:
            settings.reconnect = g_value_get_boolean(value);
            break;
        case NumBuffersProperty:
            settings.frameCount = g_value_get_int(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        }
    });
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    const FrameSource& source = sourceOf(object);
    const SourceSettings settings = source.settings();
    switch (id) {
    case SerialProperty:
        g_value_set_string(value, settings.serial.c_str());
        break;
    case PortProperty:
        g_value_set_string(value, settings.port.c_str());
        break;
    case QueuePolicyProperty:
        g_value_set_enum(value, static_cast<int>(settings.queuePolicy));
        break;
    case QueueSizeProperty:
        g_value_set_uint(value, static_cast<guint>(settings.queueSize));
        break;
    case BayerProperty:
        for (int i = 0; i < static_cast<int>(std::size(bayerOrders)); ++i) {
            if (settings.bayer == bayerOrders[i]) {
                g_value_set_enum(value, i);
            }
        }
        break;
    case ReconnectProperty:
        g_value_set_boolean(value, settings.reconnect);
        break;
    case NumBuffersProperty:
        g_value_set_int(value, settings.frameCount);
        break;
    case StatisticsProperty:
        g_value_take_boxed(value, zrngst::structureOf(source.counters()));
        break;
    default:
        if (id < FirstControl || id >= FirstControl + zrngst::controlCount) {
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
            break;
        }
        g_value_set_int(value, settings.controls[id - FirstControl]);
        orWarn(object, [&] { g_value_set_int(value, source.control(id - FirstControl)); });
    }
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition)
{
    FrameSource& source = sourceOf(element);
    try {
        switch (transition) {
        case GST_STATE_CHANGE_NULL_TO_READY:
            source.open();
            break;
        case GST_STATE_CHANGE_READY_TO_PAUSED:
            source.prepare();
            break;
        case GST_STATE_CHANGE_PAUSED_TO_PLAYING:
            source.play();
            break;
        case GST_STATE_CHANGE_PLAYING_TO_PAUSED:
            source.pause();
            break;
        default:
            break;
        }
    } catch (const zrn::Error& error) {
        zrngst::postError(element, error);
        return GST_STATE_CHANGE_FAILURE;
    }
    const GstStateChangeReturn result =
        GST_ELEMENT_CLASS(zrn_src_parent_class)->change_state(element, transition);
    switch (transition) {
    case GST_STATE_CHANGE_READY_TO_PAUSED:
    case GST_STATE_CHANGE_PLAYING_TO_PAUSED:
        return result == GST_STATE_CHANGE_SUCCESS ? GST_STATE_CHANGE_NO_PREROLL : result;
    case GST_STATE_CHANGE_PAUSED_TO_READY:
        source.unprepare();
        return result;
    case GST_STATE_CHANGE_READY_TO_NULL:
        source.close();
        return result;
    default:
        return result;
    }
}

gboolean sendEvent(GstElement* element, GstEvent* event)
{
    FrameSource& source = sourceOf(element);
    switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_EOS:
        source.requestEnd();
        break;
    case GST_EVENT_FLUSH_START:
        source.beginFlush();
        break;
    case GST_EVENT_FLUSH_STOP: {
        gboolean resetsTime = TRUE;
        gst_event_parse_flush_stop(event, &resetsTime);
        source.endFlush(resetsTime);
        break;
    }
    default:
        return GST_ELEMENT_CLASS(zrn_src_parent_class)->send_event(element, event);
    }
    gst_event_unref(event);
    return TRUE;
}

gboolean padEvent(GstPad* /*pad*/, GstObject* /*parent*/, GstEvent* event)
{
    const GstEventType type = GST_EVENT_TYPE(event);
    gst_event_unref(event);
    return type == GST_EVENT_LATENCY || type == GST_EVENT_QOS || type == GST_EVENT_RECONFIGURE;
}

gboolean padQuery(GstPad* pad, GstObject* parent, GstQuery* query)
{
    const FrameSource& source = sourceOf(parent);
    switch (GST_QUERY_TYPE(query)) {
    case GST_QUERY_LATENCY: {
        const auto [shortest, longest] = source.latency();
        gst_query_set_latency(query, TRUE, shortest, longest);
        return TRUE;
    }
    case GST_QUERY_POSITION: {
        GstFormat format = GST_FORMAT_UNDEFINED;
        gst_query_parse_position(query, &format, nullptr);
        const GstClockTime position = source.position();
        if (format != GST_FORMAT_TIME || !GST_CLOCK_TIME_IS_VALID(position)) {
            return FALSE;
        }
        gst_query_set_position(query, format, static_cast<gint64>(position));
        return TRUE;
    }
    case GST_QUERY_CAPS: {
        GstCaps* filter = nullptr;
        gst_query_parse_caps(query, &filter);
        GstCaps* caps = source.caps();
        if (filter) {
            GstCaps* both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
            gst_caps_unref(caps);
            caps = both;
        }
        gst_query_set_caps_result(query, caps);
        gst_caps_unref(caps);
        return TRUE;
    }
    default:
        return gst_pad_query_default(pad, parent, query);
    }
}

void resetCamera(GstElement* element)
{
    orWarn(element, [element] { sourceOf(element).reset(); });
}

GstSample* snapshot(GstElement* element, const char* padName)
{
    return sourceOf(element).snapshot(padName);
}

void finalize(GObject* object)
{
    delete &sourceOf(object);
    G_OBJECT_CLASS(zrn_src_parent_class)->finalize(object);
}

void installProperties(GObjectClass* object)
{
    constexpr auto plain = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    constexpr auto beforeReady = static_cast<GParamFlags>(plain | GST_PARAM_MUTABLE_READY);
    constexpr auto live =
        static_cast<GParamFlags>(plain | GST_PARAM_MUTABLE_PLAYING | GST_PARAM_CONTROLLABLE);
    const auto install = [object](guint id, GParamSpec* spec) {
        g_object_class_install_property(object, id, spec);
    };
    install(SerialProperty,
            g_param_spec_string("serial", "Serial",
                                "Serial of the camera, as ZR4711; without it and without port the "
                                "first camera that is free",
                                "", beforeReady));
    install(PortProperty,
            g_param_spec_string("port", "Port",
                                "USB port of the camera, as 1-2.3; beside a serial, where to look "
                                "first",
                                "", beforeReady));
    install(QueuePolicyProperty,
            g_param_spec_enum("queue-policy", "Queue policy",
                              "What becomes of frames that the pipeline is too slow for",
                              queuePolicyType(), static_cast<int>(zrn::QueuePolicy::All),
                              beforeReady));
    install(QueueSizeProperty,
            g_param_spec_uint("queue-size", "Queue size",
                              "Frames that wait for the pipeline, unless the policy is newest", 1,
                              G_MAXINT, 16, beforeReady));
    install(BayerProperty,
            g_param_spec_enum("bayer", "Bayer order",
                              "Order of the cells of the colour mosaic, for bayer2rgb", bayerType(),
                              0, beforeReady));
    install(ReconnectProperty,
            g_param_spec_boolean("reconnect", "Reconnect",
                                 "Wait for a camera that leaves, and go on when it is back; "
                                 "otherwise an error ends the stream",
                                 TRUE, live));
    install(NumBuffersProperty,
            g_param_spec_int("num-buffers", "Number of frames",
                             "Frames to send before the end of the stream; -1 is no end", -1,
                             G_MAXINT, -1, plain));
    install(
        StatisticsProperty,
        g_param_spec_boxed("statistics", "Statistics",
                           "Frames since PLAYING began, and where others were lost: in the "
                           "camera or on its way (lost-camera), in libuvc (lost-library), in the "
                           "driver's cache (lost-ring), in the queue (lost-queue)",
                           GST_TYPE_STRUCTURE,
                           static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
    guint id = FirstControl;
    for (const zrngst::Control& control : zrngst::controls()) {
        install(id++, g_param_spec_int(control.name, control.nick, control.blurb, zrngst::untouched,
                                       control.maximum, zrngst::untouched,
                                       control.isLive ? live : beforeReady));
    }
}

void installSignals(GType type)
{
    constexpr auto action = static_cast<GSignalFlags>(G_SIGNAL_RUN_LAST | G_SIGNAL_ACTION);
    g_signal_new_class_handler("reset", type, action, G_CALLBACK(resetCamera), nullptr, nullptr,
                               nullptr, G_TYPE_NONE, 0);
    g_signal_new_class_handler("snapshot", type, action, G_CALLBACK(snapshot), nullptr, nullptr,
                               nullptr, GST_TYPE_SAMPLE, 1, G_TYPE_STRING);
}

} // namespace

void zrn_src_class_init(ZrnSrcClass* type)
{
    GST_DEBUG_CATEGORY_INIT(zrn_src_debug, "zrnsrc", 0, "USB camera source");

    GObjectClass* object = G_OBJECT_CLASS(type);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    installProperties(object);
    installSignals(G_TYPE_FROM_CLASS(type));

    GstElementClass* element = GST_ELEMENT_CLASS(type);
    element->change_state = changeState;
    element->send_event = sendEvent;
    static GstStaticPadTemplate templateA = padTemplate("src_a");
    static GstStaticPadTemplate templateB = padTemplate("src_b");
    gst_element_class_add_static_pad_template(element, &templateA);
    gst_element_class_add_static_pad_template(element, &templateB);
    gst_element_class_set_static_metadata(
        element, "ZRN camera source", "Source/Video/Device",
        "Both images of each frame of a USB camera 0483:5750, with the same time on both pads. "
        "Either pad may stay unlinked; where both are linked, each branch begins with a queue. "
        "Goes on when a camera that left is back",
        "ZRN camera developers");
    gst_type_mark_as_plugin_api(queuePolicyType(), GstPluginAPIFlags{});
    gst_type_mark_as_plugin_api(bayerType(), GstPluginAPIFlags{});
}

void zrn_src_init(ZrnSrc* self)
{
    GstElement* element = GST_ELEMENT(self);
    GstElementClass* type = GST_ELEMENT_GET_CLASS(self);
    const auto addPad = [&](const char* name) {
        GstPad* pad =
            gst_pad_new_from_template(gst_element_class_get_pad_template(type, name), name);
        gst_pad_set_query_function(pad, padQuery);
        gst_pad_set_event_function(pad, padEvent);
        gst_element_add_pad(element, pad);
        return pad;
    };
    GstPad* padA = addPad("src_a");
    GstPad* padB = addPad("src_b");
    self->source = new FrameSource(element, padA, padB);
    GST_OBJECT_FLAG_SET(element, GST_ELEMENT_FLAG_SOURCE);
    GST_OBJECT_FLAG_SET(element, GST_ELEMENT_FLAG_REQUIRE_CLOCK);
}
