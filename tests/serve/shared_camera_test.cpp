// A camera that fails while somebody looks, played by an element under zrnsrc's name.

#include "zrnserve/lossless_stream.h"
#include "zrnserve/shared_camera.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <unistd.h>

namespace
{

struct FakeSource {
    GstBin bin;
};

struct FakeSourceClass {
    GstBinClass parent;
};

std::atomic<GstElement*> playing = nullptr;
std::atomic<int> refusals = 0; ///< so many openings fail
std::atomic<bool> isSilent = false;

} // namespace

G_DEFINE_TYPE(FakeSource, fake_source, GST_TYPE_BIN)

namespace
{

constexpr guint statisticsProperty = 2;

GstStateChangeReturn changeState(GstElement* element, GstStateChange change)
{
    if (change == GST_STATE_CHANGE_NULL_TO_READY) {
        if (refusals > 0) {
            --refusals;
            GST_ELEMENT_ERROR(element, RESOURCE, BUSY, ("another program has it"), (nullptr));
            return GST_STATE_CHANGE_FAILURE;
        }
        playing = element;
    } else if (change == GST_STATE_CHANGE_READY_TO_NULL) {
        playing = nullptr;
    }
    return GST_ELEMENT_CLASS(fake_source_parent_class)->change_state(element, change);
}

void getProperty(GObject* /*object*/, guint id, GValue* value, GParamSpec* /*spec*/)
{
    if (id == statisticsProperty) {
        g_value_take_boxed(value, gst_structure_new_empty("zrn-statistics"));
    }
}

void setProperty(GObject* /*object*/, guint /*id*/, const GValue* /*value*/, GParamSpec* /*spec*/)
{
}

} // namespace

void fake_source_class_init(FakeSourceClass* type)
{
    GObjectClass* object = G_OBJECT_CLASS(type);
    object->get_property = getProperty;
    object->set_property = setProperty;
    GST_ELEMENT_CLASS(type)->change_state = changeState;
    g_object_class_install_property(object, 1,
                                    g_param_spec_string("serial", "", "", "", G_PARAM_READWRITE));
    g_object_class_install_property(
        object, statisticsProperty,
        g_param_spec_boxed("statistics", "", "", GST_TYPE_STRUCTURE, G_PARAM_READABLE));
}

void fake_source_init(FakeSource* self)
{
    for (const char* name : {"src_a", "src_b"}) {
        GstElement* images = gst_parse_bin_from_description(
            isSilent ? "appsrc is-live=true"
                     : "videotestsrc is-live=true ! capsfilter "
                       "caps=video/x-raw,format=GRAY8,width=32,height=32,framerate=50/1",
            TRUE, nullptr);
        gst_bin_add(&self->bin, images);
        g_autoptr(GstPad) pad = gst_element_get_static_pad(images, "src");
        gst_element_add_pad(GST_ELEMENT(self), gst_ghost_pad_new(name, pad));
    }
}

namespace
{

/// Somebody who looks at image B.
class Looking
{
public:
    explicit Looking(zrnserve::SharedCamera& camera)
        : m_pipeline(gst_parse_launch("appsrc name=images is-live=true format=time max-buffers=3 "
                                      "leaky-type=downstream ! appsink name=seen sync=false",
                                      nullptr))
    {
        g_autoptr(GstClock) clock = gst_system_clock_obtain();
        gst_pipeline_use_clock(GST_PIPELINE(m_pipeline), clock);
        gst_element_set_state(m_pipeline, GST_STATE_PLAYING);
        g_autoptr(GstElement) images = gst_bin_get_by_name(GST_BIN(m_pipeline), "images");
        m_viewing = camera.look(zrnserve::View::B, GST_APP_SRC(images));
    }

    ~Looking()
    {
        m_viewing.reset();
        gst_element_set_state(m_pipeline, GST_STATE_NULL);
        gst_object_unref(m_pipeline);
    }

    Looking(const Looking&) = delete;
    Looking& operator=(const Looking&) = delete;

    bool isIn() const { return m_viewing != nullptr; }

    /// The next image. @return whether the stream goes on
    bool see()
    {
        g_autoptr(GstElement) sink = gst_bin_get_by_name(GST_BIN(m_pipeline), "seen");
        GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(sink));
        if (!sample) {
            return false;
        }
        gst_sample_unref(sample);
        return true;
    }

private:
    GstElement* const m_pipeline;
    std::unique_ptr<zrnserve::SharedCamera::Viewing> m_viewing;
};

std::shared_ptr<zrnserve::SharedCamera> newCamera(zrnserve::CameraPatience patience = {})
{
    gst_init(nullptr, nullptr);
    gst_element_register(nullptr, "zrnsrc", GST_RANK_PRIMARY, fake_source_get_type());
    return std::make_shared<zrnserve::SharedCamera>("A", patience);
}

/// As an element does whose stream has ended for good.
void fail()
{
    GST_ELEMENT_ERROR(playing.load(), RESOURCE, READ, ("the bus fails"), (nullptr));
}

/// As when another kind of camera comes back.
void changeSize()
{
    g_autoptr(GstCaps) caps =
        gst_caps_from_string("video/x-raw,format=GRAY8,width=64,height=64,framerate=50/1");
    GstIterator* filters =
        gst_bin_iterate_all_by_element_factory_name(GST_BIN(playing.load()), "capsfilter");
    const GstIteratorForeachFunction set = [](const GValue* filter, gpointer wanted) {
        g_object_set(g_value_get_object(filter), "caps", wanted, nullptr);
    };
    EXPECT_EQ(gst_iterator_foreach(filters, set, caps), GST_ITERATOR_DONE);
    gst_iterator_free(filters);
}

/// Somebody who takes the stream without loss, and connects again when it ends.
class Receiving
{
public:
    explicit Receiving(int port)
        : m_pipeline(gst_parse_launch(
              ("srtsrc uri=srt://127.0.0.1:" + std::to_string(port) + " ! fakesink sync=false")
                  .c_str(),
              nullptr))
    {
        gst_element_set_state(m_pipeline, GST_STATE_PLAYING);
    }
    ~Receiving()
    {
        gst_element_set_state(m_pipeline, GST_STATE_NULL);
        gst_object_unref(m_pipeline);
    }
    Receiving(const Receiving&) = delete;
    Receiving& operator=(const Receiving&) = delete;

private:
    GstElement* const m_pipeline;
};

/// Its receiver; without a name while nothing is sent to one.
std::string receiverOf(const zrnserve::LosslessStream& stream)
{
    const auto receivers = stream.receivers();
    return receivers.empty() || receivers[0].sent == 0 ? "" : receivers[0].name;
}

void waitUntil(const std::function<bool()>& condition)
{
    while (!condition()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

TEST(LosslessStream, EndsForItsReceiversWhenItFails)
{
    const std::shared_ptr<zrnserve::SharedCamera> camera = newCamera();
    std::unique_ptr<zrnserve::LosslessStream> stream;
    for (int port = 20000 + ::getpid() % 10000; !stream; ++port) {
        try {
            stream = std::make_unique<zrnserve::LosslessStream>(camera, "127.0.0.1", port, "");
        } catch (const std::runtime_error&) {
            ASSERT_LT(port, 40000);
        }
    }
    const Receiving receiver(stream->port());
    waitUntil([&] { return !receiverOf(*stream).empty(); });
    const std::string name = receiverOf(*stream);
    changeSize();
    waitUntil([&] { return stream->failures() > 0; });
    waitUntil([&] { return !receiverOf(*stream).empty() && receiverOf(*stream) != name; });
    EXPECT_EQ(stream->failures(), 1U);
}

TEST(SharedCamera, GoesOnForWhoLookedWhenItFailed)
{
    const std::shared_ptr<zrnserve::SharedCamera> camera = newCamera();
    Looking old(*camera);
    ASSERT_TRUE(old.isIn() && old.see());
    refusals = 1;
    fail();
    while (camera->counts().opened < 2) {
        ASSERT_TRUE(old.isIn());
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (int i = 0; i < 5; ++i) { // more than waited for the encoder
        ASSERT_TRUE(old.see());
    }
    EXPECT_EQ(refusals, 0);
    Looking newcomer(*camera);
    EXPECT_TRUE(newcomer.isIn() && newcomer.see());
    EXPECT_EQ(camera->counts().opened, 2U);
}

TEST(SharedCamera, IsWaitedForOnceByThoseWhoWaitForOneAnother)
{
    isSilent = true;
    const std::shared_ptr<zrnserve::SharedCamera> camera =
        newCamera({std::chrono::milliseconds(1), std::chrono::hours(1)});
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(Looking(*camera).isIn());
    }
    EXPECT_EQ(camera->counts().opened, 1U);
}

TEST(SharedCamera, IsTriedAgainAfterItWasSilent)
{
    isSilent = true;
    const std::shared_ptr<zrnserve::SharedCamera> camera =
        newCamera({std::chrono::milliseconds(1), std::chrono::milliseconds(0)});
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(Looking(*camera).isIn());
    }
    EXPECT_EQ(camera->counts().opened, 3U);
}

TEST(SharedCamera, IsNotOpenedAnewWhenNobodyLooks)
{
    const std::shared_ptr<zrnserve::SharedCamera> camera = newCamera();
    {
        Looking old(*camera);
        ASSERT_TRUE(old.isIn());
        fail();
    }
    EXPECT_FALSE(camera->counts().isOpen);
    camera->close(); // waits for what is being opened
    EXPECT_EQ(camera->counts().opened, 1U);
}

} // namespace
