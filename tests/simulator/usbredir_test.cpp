// The virtual cameras as a hypervisor meets them on their UNIX sockets.

#include "camera_ids.h"
#include "control/unix_socket.h"
#include "model/negotiation.h"
#include "usbredir/usbredir_bus.h"
#include "usbredir_host.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/socket.h>

namespace
{

using namespace zrnsim;
using std::chrono::milliseconds;

constexpr std::uint8_t getFromInterface = 0xa1;
constexpr std::uint8_t setToInterface = 0x21;
constexpr std::uint16_t brightnessSelector = 0x0200;
constexpr std::uint16_t processingUnit = topology::processingUnit << 8U;
constexpr std::uint32_t isochronousCapacity = 3060;

/// A frame that tells its number and each of its bytes' place.
void render(const FrameRequest& request, Bytes& frame)
{
    frame.resize(static_cast<std::size_t>(request.width * request.height) *
                 static_cast<std::size_t>(request.bytesPerPosition));
    for (std::size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<std::uint8_t>(i * 7 + i / 256 + request.frameNumber);
    }
}

class UsbRedirTest : public testing::Test
{
protected:
    UsbRedirTest()
    {
        std::string name = std::filesystem::temp_directory_path() / "usbredir.XXXXXX";
        m_folder = mkdtemp(name.data());
    }
    ~UsbRedirTest() override
    {
        m_host.reset();
        m_bus.reset();
        std::filesystem::remove_all(m_folder);
    }

    Camera& start(const std::string& camera)
    {
        m_cameras.push_back(std::make_unique<Camera>(parseCamera(camera, 1), render));
        m_bus = std::make_unique<UsbRedirBus>(m_cameras, m_folder);
        connect();
        return *m_cameras.front();
    }

    void connect()
    {
        m_host = std::make_unique<UsbRedirHost>(m_folder / "camera0");
        ASSERT_TRUE(m_host->exchangeUntil([this] { return m_host->device.has_value(); }));
    }

    void commit()
    {
        StreamParameters parameters;
        parameters.frameIndex = 2;
        const Bytes block = parameters.encode();
        const auto answer =
            m_host->control(setToInterface, uvc::setCur, uvc::vsCommit << 8U,
                            topology::streamingInterface, StreamParameters::wireSize, block);
        ASSERT_TRUE(answer.has_value());
        ASSERT_EQ(usb_redir_success, answer->status);
    }

    static Bytes expectedFrame(std::uint32_t number)
    {
        FrameRequest request;
        request.width = 640;
        request.height = 480;
        request.frameNumber = number;
        Bytes frame;
        render(request, frame);
        return frame;
    }

    std::filesystem::path m_folder;
    CameraList m_cameras;
    std::unique_ptr<UsbRedirBus> m_bus;
    std::unique_ptr<UsbRedirHost> m_host;
};

TEST_F(UsbRedirTest, AnnouncesTheCamera)
{
    start("type0");
    EXPECT_EQ(usb_redir_speed_super, m_host->device->speed);
    EXPECT_EQ(zrn::cameraVendorId, m_host->device->vendor_id);
    EXPECT_EQ(zrn::cameraProductId, m_host->device->product_id);
    EXPECT_EQ(0xef, m_host->device->device_class);
    EXPECT_EQ(0x0100, m_host->device->device_version_bcd);
    EXPECT_EQ(2U, m_host->interfaces.interface_count);
    EXPECT_EQ(0x0e, m_host->interfaces.interface_class[1]);
    EXPECT_EQ(usb_redir_type_bulk, m_host->endpoints.type[17]);
    EXPECT_EQ(1024, m_host->endpoints.max_packet_size[17]);
    EXPECT_EQ(1, m_host->endpoints.interface[17]);
    EXPECT_EQ(usb_redir_type_invalid, m_host->endpoints.type[18]);
}

TEST_F(UsbRedirTest, AnswersControlRequests)
{
    start("type0,brightness=1:5000:300");
    const auto value =
        m_host->control(getFromInterface, uvc::getCur, brightnessSelector, processingUnit, 2);
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(usb_redir_success, value->status);
    EXPECT_EQ((Bytes{300 & 0xff, 300 >> 8}), value->data);

    const Bytes wanted{0x39, 0x05};
    EXPECT_EQ(
        usb_redir_success,
        m_host->control(setToInterface, uvc::setCur, brightnessSelector, processingUnit, 2, wanted)
            ->status);
    EXPECT_EQ(0x539, m_cameras[0]->controls()[ControlId::Brightness].cur);

    const auto unknown = m_host->control(getFromInterface, uvc::getCur, 0x7f00, processingUnit, 2);
    EXPECT_EQ(usb_redir_stall, unknown->status);
    EXPECT_TRUE(unknown->data.empty());
}

TEST_F(UsbRedirTest, DelaysAndLeavesOutAnswers)
{
    Camera& camera = start("type0");
    ControlFault late;
    late.action = ControlFault::Action::Delay;
    late.delay = milliseconds(200);
    camera.addControlFault(late);
    const auto begin = std::chrono::steady_clock::now();
    const auto answer =
        m_host->control(getFromInterface, uvc::getCur, brightnessSelector, processingUnit, 2);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(2U, answer->data.size());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, late.delay);

    ControlFault never;
    never.action = ControlFault::Action::Ignore;
    camera.addControlFault(never);
    const std::uint64_t id =
        m_host->submitControl(getFromInterface, uvc::getCur, brightnessSelector, processingUnit, 2);
    m_host->exchangeFor(milliseconds(100));
    EXPECT_FALSE(m_host->answers.contains(id));
    usbredirparser_send_cancel_data_packet(m_host->parser(), id);
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->answers.contains(id); }));
    EXPECT_EQ(usb_redir_cancelled, m_host->answers[id].status);
}

/// Fetches a frame with bulk requests of a size that payloads are a multiple of.
Bytes fetchFrame(UsbRedirHost& host, std::uint32_t requestSize)
{
    constexpr std::size_t frameSize = std::size_t(640) * 480 * 2;
    constexpr std::size_t payloadSize = std::size_t(128) * 1024;
    Bytes frame;
    for (std::size_t payload = 0; frame.size() < frameSize;) {
        const std::uint64_t id = host.submitBulk(requestSize);
        if (!host.exchangeUntil([&] { return host.answers.contains(id); }) ||
            host.answers[id].status != usb_redir_success) {
            break;
        }
        const Bytes data = std::move(host.answers[id].data);
        const std::size_t header = payload == 0 && !data.empty() ? data[0] : 0;
        frame.insert(frame.end(), data.begin() + static_cast<std::ptrdiff_t>(header), data.end());
        payload += data.size();
        if (data.size() < requestSize || payload == payloadSize) {
            payload = 0;
        }
    }
    return frame;
}

TEST_F(UsbRedirTest, SendsFramesOverBulk)
{
    Camera& camera = start("type0,rate=0");
    commit();
    for (const std::uint32_t number : {0U, 1U}) {
        ASSERT_TRUE(camera.emitFrames(1));
        // As one request for each payload, and in the kernel's slices.
        EXPECT_EQ(expectedFrame(number), fetchFrame(*m_host, number == 0 ? 128 * 1024 : 16 * 1024));
    }
    EXPECT_EQ(2U, camera.counters().framesSent);
}

TEST_F(UsbRedirTest, CancelsBulkRequests)
{
    Camera& camera = start("type0,rate=0");
    commit();
    const std::uint64_t first = m_host->submitBulk(1024);
    const std::uint64_t second = m_host->submitBulk(1024);
    usbredirparser_send_cancel_data_packet(m_host->parser(), first);
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->answers.contains(first); }));
    EXPECT_EQ(usb_redir_cancelled, m_host->answers[first].status);
    EXPECT_FALSE(m_host->answers.contains(second));

    ASSERT_TRUE(camera.emitFrames(1));
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->answers.contains(second); }));
    EXPECT_EQ(1024U, m_host->answers[second].data.size());
}

TEST_F(UsbRedirTest, EndsTransfersWithFaults)
{
    Camera& camera = start("type0,rate=0");
    commit();
    camera.addTransferFaults(TransferFault::Protocol, 1);
    camera.addTransferFaults(TransferFault::Overflow, 1);
    const std::uint64_t lost = m_host->submitBulk(1024);
    const std::uint64_t babbled = m_host->submitBulk(1024);
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->answers.contains(babbled); }));
    EXPECT_EQ(usb_redir_ioerror, m_host->answers[lost].status);
    EXPECT_EQ(usb_redir_babble, m_host->answers[babbled].status);

    camera.haltEndpoint();
    const std::uint64_t halted = m_host->submitBulk(1024);
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->answers.contains(halted); }));
    EXPECT_EQ(usb_redir_stall, m_host->answers[halted].status);
}

TEST_F(UsbRedirTest, ForgetsTransfersWhenUnplugged)
{
    Camera& camera = start("type0,rate=0");
    commit();
    const std::uint64_t pending = m_host->submitBulk(1024);
    ASSERT_TRUE(
        m_host->control(getFromInterface, uvc::getCur, brightnessSelector, processingUnit, 2)
            .has_value());
    m_bus->unplug(0, true);
    EXPECT_FALSE(camera.isStreaming());
    EXPECT_FALSE(m_bus->isPlugged(0));
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->disconnects == 1; }));

    // What crosses the unplug on the line is dropped too.
    const std::uint64_t crossing =
        m_host->submitControl(getFromInterface, uvc::getCur, brightnessSelector, processingUnit, 2);
    m_host->exchangeFor(milliseconds(100));
    EXPECT_FALSE(m_host->answers.contains(pending));
    EXPECT_FALSE(m_host->answers.contains(crossing));
}

TEST_F(UsbRedirTest, PlugsInAgain)
{
    start("type0");
    m_bus->unplug(0, true);
    m_bus->plug(0, 4711, true);
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->disconnects == 1; }));
    // The parser acknowledges by itself that the camera has gone; only then may it come back.
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->device.has_value(); }));
    const auto serial = m_host->control(0x80, usb::getDescriptor, usb::descriptorString << 8U | 3U,
                                        usb::langEnglishUs, 255);
    ASSERT_TRUE(serial.has_value());
    EXPECT_EQ((Bytes{10, usb::descriptorString, '4', 0, '7', 0, '1', 0, '1', 0}), serial->data);
}

TEST_F(UsbRedirTest, SendsFramesOverIsochronousPackets)
{
    Camera& camera = start("type0,rate=0,pipe=iso,payload=3060");
    EXPECT_EQ(usb_redir_type_invalid, m_host->endpoints.type[17]);
    commit();
    const auto settings = alternateSettings(camera.config());
    ASSERT_EQ(usb_redir_success, m_host->setAlternate(static_cast<std::uint8_t>(settings - 1)));
    EXPECT_EQ(usb_redir_type_iso, m_host->endpoints.type[17]);
    EXPECT_EQ(usb_redir_stall, m_host->setAlternate(settings));

    usb_redir_start_iso_stream_header begin{topology::streamingEndpoint, 32, 15};
    usbredirparser_send_start_iso_stream(m_host->parser(), 1000, &begin);
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->isochronousStatus.has_value(); }));
    EXPECT_EQ(usb_redir_success, m_host->isochronousStatus);

    ASSERT_TRUE(camera.emitFrames(1));
    Bytes frame;
    const Bytes expected = expectedFrame(0);
    ASSERT_TRUE(m_host->exchangeUntil([&] {
        for (; !m_host->packets.empty(); m_host->packets.pop_front()) {
            const UsbRedirHost::Answer& packet = m_host->packets.front();
            EXPECT_EQ(usb_redir_success, packet.status);
            EXPECT_LE(packet.data.size(), isochronousCapacity);
            if (!packet.data.empty()) {
                frame.insert(frame.end(), packet.data.begin() + packet.data[0], packet.data.end());
            }
        }
        return frame.size() >= expected.size();
    }));
    EXPECT_EQ(expected, frame);

    usb_redir_stop_iso_stream_header end{topology::streamingEndpoint};
    m_host->isochronousStatus.reset();
    usbredirparser_send_stop_iso_stream(m_host->parser(), 1001, &end);
    ASSERT_TRUE(m_host->exchangeUntil([&] { return m_host->isochronousStatus.has_value(); }));
    m_host->packets.clear();
    m_host->exchangeFor(milliseconds(50));
    EXPECT_TRUE(m_host->packets.empty());
}

TEST_F(UsbRedirTest, ServesTheNextHost)
{
    Camera& camera = start("type0,rate=0");
    commit();
    EXPECT_TRUE(camera.isStreaming());
    m_host.reset();
    connect();
    EXPECT_FALSE(camera.isStreaming());
    commit();
    ASSERT_TRUE(camera.emitFrames(1));
    EXPECT_EQ(640U * 480U * 2U, fetchFrame(*m_host, 128 * 1024).size());
}

TEST_F(UsbRedirTest, SurvivesNonsense)
{
    start("type0");
    FileDescriptor stranger = connectTo(m_folder / "camera0"); // waits until the first has gone
    m_host.reset();
    const Bytes nonsense(4096, 0x5a);
    ASSERT_GT(send(stranger.get(), nonsense.data(), nonsense.size(), MSG_NOSIGNAL), 0);
    stranger = FileDescriptor();
    connect();
    EXPECT_TRUE(
        m_host->control(getFromInterface, uvc::getCur, brightnessSelector, processingUnit, 2)
            .has_value());
}

} // namespace
