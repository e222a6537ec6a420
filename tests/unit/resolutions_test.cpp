// The camera's frame sizes as the property layer asks for them.

#include "driver_test.h"
#include "stdout_capture.h"

#include <QVariant>

using fakeuvc::Camera;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class Resolutions : public DriverTest
{
protected:
    Resolutions()
        : m_device(connect(2, 8, 4))
    {
    }

    Camera& m_device;
};

const std::vector<fakeuvc::Format> severalFormats = {
    {UVC_VS_FORMAT_MJPEG, {{8, 4, 1}}},
    {UVC_VS_FORMAT_UNCOMPRESSED, {{32, 16, 2}, {16, 8, 3}, {8, 4, 4}, {8, 4, 5}}},
    {UVC_VS_FORMAT_UNCOMPRESSED, {}},
    {UVC_VS_FORMAT_UNCOMPRESSED, {{4, 2, 6}, {8, 4, 7}, {2, 1, 8}}},
};

constexpr auto noFormats = "readResolutionList: get image format is failed";

} // namespace

TEST_F(Resolutions, TheListIsWrittenOnlyWhenItIsEmpty)
{
    m_device.formats = {{UVC_VS_FORMAT_MJPEG, {{8, 4}}}, {UVC_VS_FORMAT_UNCOMPRESSED, {}}};
    QMap<QString, QVariant> map = {{"WIDTHS", 1}, {"other", 2}};
    EXPECT_TRUE(camera.readResolutionList(map));
    ASSERT_EQ(map.size(), 3);
    EXPECT_EQ(map["other"], QVariant(2));
    for (const char* key : {"WIDTHS", "HEIGHTS"}) {
        ASSERT_TRUE(map[key].canConvert<QList<int>>());
        EXPECT_STREQ(map[key].typeName(), "QList<int>");
        EXPECT_THAT(map[key].value<QList<int>>(), IsEmpty());
    }
    // Frames of other formats are not logged here.
    EXPECT_THAT(log.lines(),
                ElementsAre(infoLine("bDescriptorSubtype: 6"), infoLine("bDescriptorSubtype: 4")));
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_get_format_descs handle1"));
}

TEST_F(Resolutions, AListWithSizesFailsAndLeavesTheMap)
{
    m_device.formats = severalFormats;
    QMap<QString, QVariant> map = {{"other", 2}};
    EXPECT_FALSE(camera.readResolutionList(map));
    EXPECT_EQ(map, (QMap<QString, QVariant>{{"other", 2}}));
    EXPECT_THAT(log.lines(),
                ElementsAre(infoLine("bDescriptorSubtype: 6"), infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 32 ,h: 16 ,defaultFrameInterval: 2"),
                            infoLine("\tw: 16 ,h: 8 ,defaultFrameInterval: 3"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 4"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 5"),
                            infoLine("bDescriptorSubtype: 4"), infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 4 ,h: 2 ,defaultFrameInterval: 6"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 7"),
                            infoLine("\tw: 2 ,h: 1 ,defaultFrameInterval: 8")));
}

TEST_F(Resolutions, WithoutFormatsEveryReadFails)
{
    m_device.formats.clear();
    QMap<QString, QVariant> map;
    int index = 3;
    EXPECT_FALSE(camera.readResolutionList(map));
    EXPECT_FALSE(camera.resolutionIndexIO(true, index));
    const StdoutCapture output;
    EXPECT_FALSE(camera.resolutionIndexIO(false, index));
    EXPECT_EQ(output.text(), "");
    EXPECT_TRUE(map.isEmpty());
    EXPECT_EQ(index, 3);
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine(noFormats), criticalLine(noFormats),
                                         criticalLine(noFormats)));
}

TEST_F(Resolutions, WithoutACameraEveryReadFailsSilently)
{
    CameraProbe unconnected;
    QMap<QString, QVariant> map;
    int index = 3;
    const StdoutCapture output;
    EXPECT_FALSE(unconnected.readResolutionList(map));
    EXPECT_FALSE(unconnected.resolutionIndexIO(true, index));
    EXPECT_FALSE(unconnected.resolutionIndexIO(false, index));
    EXPECT_TRUE(map.isEmpty());
    EXPECT_EQ(index, 3);
    EXPECT_EQ(output.text(), "");
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(Resolutions, TheIndexCountsWithinItsFormat)
{
    m_device.formats = {
        {UVC_VS_FORMAT_UNCOMPRESSED, {{32, 16, 2}, {16, 8, 3}, {8, 4, 4}, {4, 2, 5}}}};
    int index = -1;
    EXPECT_TRUE(camera.resolutionIndexIO(true, index));
    EXPECT_EQ(index, 2);
    EXPECT_THAT(log.lines(), ElementsAre(infoLine("bDescriptorSubtype: 4"),
                                         infoLine("\tw: 32 ,h: 16 ,defaultFrameInterval: 2"),
                                         infoLine("\tw: 16 ,h: 8 ,defaultFrameInterval: 3"),
                                         infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 4")));
}

TEST_F(Resolutions, ALaterFormatOverwritesTheIndex)
{
    m_device.formats = severalFormats;
    int index = -1;
    EXPECT_TRUE(camera.resolutionIndexIO(true, index));
    EXPECT_EQ(index, 1);
    EXPECT_THAT(log.lines(),
                ElementsAre(infoLine("bDescriptorSubtype: 6"), infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 32 ,h: 16 ,defaultFrameInterval: 2"),
                            infoLine("\tw: 16 ,h: 8 ,defaultFrameInterval: 3"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 4"),
                            infoLine("bDescriptorSubtype: 4"), infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 4 ,h: 2 ,defaultFrameInterval: 6"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 7")));
}

TEST_F(Resolutions, ASizeThatIsNotOfferedHasNoIndex)
{
    m_device.formats = {{UVC_VS_FORMAT_MJPEG, {{8, 4}}},
                        {UVC_VS_FORMAT_UNCOMPRESSED, {{8, 5}, {9, 4}}}};
    int index = -7;
    EXPECT_FALSE(camera.resolutionIndexIO(true, index));
    EXPECT_EQ(index, -7);
}

TEST_F(Resolutions, WritingTheIndexNeedsAStream)
{
    int index = 0;
    const StdoutCapture output;
    EXPECT_FALSE(camera.resolutionIndexIO(false, index));
    EXPECT_EQ(output.text(), "camera not start stream\n");
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_get_format_descs handle1"));
}

TEST_F(Resolutions, WritingTheIndexSelectsNothing)
{
    m_device.formats = severalFormats;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    clearLogs();
    int index = 1;
    {
        const StdoutCapture output;
        EXPECT_FALSE(camera.resolutionIndexIO(false, index));
        EXPECT_EQ(output.text(), "select camera resolution to 1 failed\n");
    }
    EXPECT_EQ(index, 1);
    EXPECT_EQ(camera.m_imageWidth, 8);
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_get_format_descs handle1"));
    EXPECT_THAT(log.lines(),
                ElementsAre(infoLine("bDescriptorSubtype: 6"), infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 32 ,h: 16 ,defaultFrameInterval: 2"),
                            infoLine("\tw: 16 ,h: 8 ,defaultFrameInterval: 3"),
                            infoLine("bDescriptorSubtype: 4"), infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 4 ,h: 2 ,defaultFrameInterval: 6"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 7")));

    clearLogs();
    const StdoutCapture output;
    for (int outside : {-1, 100}) {
        EXPECT_FALSE(camera.resolutionIndexIO(false, outside));
    }
    EXPECT_EQ(output.text(), "select camera resolution to -1 failed\n"
                             "select camera resolution to 100 failed\n");
    EXPECT_TRUE(camera.m_isStreaming);
}
