// A camera that fails while somebody looks, played by an element under zrnsrc's name.

#include "zrnserve/shared_camera.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

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
            "videotestsrc is-live=true ! "
            "video/x-raw,format=GRAY8,width=32,height=32,framerate=50/1",
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

std::shared_ptr<zrnserve::SharedCamera> newCamera()
{
    gst_init(nullptr, nullptr);
    gst_element_register(nullptr, "zrnsrc", GST_RANK_PRIMARY, fake_source_get_type());
    return std::make_shared<zrnserve::SharedCamera>("A");
}

/// As an element does whose stream has ended for good.
void fail()
{
    GST_ELEMENT_ERROR(playing.load(), RESOURCE, READ, ("the bus fails"), (nullptr));
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
