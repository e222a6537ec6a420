#include "doctor/findings.h"
#include "udev_rule.h"

#include <gtest/gtest.h>

namespace
{

zrn::BusCamera makeCamera()
{
    zrn::BusCamera camera;
    camera.port = "1-2";
    camera.bus = 1;
    camera.address = 7;
    camera.nodeExists = true;
    camera.accessible = true;
    // Isochronous, 64 x 48 pixels of 8 bits, packets of 1024 bytes: 100 transfers of 3 packets.
    QByteArray frame(30, '\0');
    frame[0] = 30;
    frame[1] = 0x24;
    frame[2] = 0x05;
    frame[5] = 64;
    frame[7] = 48;
    QByteArray format(27, '\0');
    format[0] = 27;
    format[1] = 0x24;
    format[2] = 0x04;
    format[21] = 8;
    camera.descriptors = (QByteArray("\x09\x04\x01\x00\x01\x0e\x02\x00\x00", 9) + format + frame +
                          QByteArray("\x07\x05\x81\x05\x00\x04\x01", 7))
                             .toStdString();
    return camera;
}

zrn::BusCamera makeBulkCamera()
{
    zrn::BusCamera camera = makeCamera();
    camera.descriptors[camera.descriptors.size() - 4] = 2;
    return camera;
}

const Finding& find(const std::vector<Finding>& findings, const char* subject)
{
    static const Finding none{QString(), Verdict::Unknown, QString(), QString()};
    for (const Finding& finding : findings) {
        if (finding.subject == QLatin1String(subject)) {
            return finding;
        }
    }
    return none;
}

} // namespace

TEST(Findings, AnEmptyBusIsAProblem)
{
    const std::vector<Finding> findings = judgeBus({});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].verdict, Verdict::Problem);
    EXPECT_TRUE(findings[0].message.contains(QLatin1String(zrn::cameraIds)));
}

TEST(Findings, ACameraThatMayBeOpenedIsGood)
{
    for (const Finding& finding : judgeBus({makeCamera()})) {
        EXPECT_EQ(finding.verdict, Verdict::Good) << finding.message.toStdString();
    }
}

TEST(Findings, MissingPermissionShowsTheUdevRule)
{
    zrn::BusCamera camera = makeCamera();
    camera.accessible = false;
    const Finding finding = find(judgeBus({camera}), "permission");
    EXPECT_EQ(finding.verdict, Verdict::Problem);
    EXPECT_TRUE(finding.message.contains(QString::fromStdString(camera.node())));
    EXPECT_TRUE(finding.remedy.contains(QLatin1String(zrn::udevRule)));
    EXPECT_TRUE(finding.remedy.contains(QLatin1String(zrn::udevRulePath)));
    EXPECT_TRUE(finding.remedy.contains(QLatin1String("udevadm control --reload")));

    camera.nodeExists = false;
    EXPECT_EQ(find(judgeBus({camera}), "permission").verdict, Verdict::Problem);
}

TEST(Findings, AKernelDriverIsAWarning)
{
    zrn::BusCamera camera = makeCamera();
    camera.kernelDrivers = {"uvcvideo"};
    camera.videoNodes = {"/dev/video2", "/dev/video3"};
    const Finding finding = find(judgeBus({camera}), "kernel-driver");
    EXPECT_EQ(finding.verdict, Verdict::Warning);
    EXPECT_TRUE(finding.message.contains(QLatin1String("uvcvideo")));
    EXPECT_TRUE(finding.remedy.contains(QLatin1String("'fuser -v /dev/video2 /dev/video3'")));
}

TEST(Findings, ACameraInUseNamesItsHolderAndNoOtherCamera)
{
    zrn::BusCamera held = makeCamera();
    held.use = zrn::Use::Held;
    held.holders = {{4711, "zrnview"}};
    zrn::BusCamera free = makeCamera();
    free.port = "1-9";
    const Finding finding = find(judgeBus({held, free}), "use");
    EXPECT_EQ(finding.verdict, Verdict::Warning);
    EXPECT_EQ(finding.message, "the camera at 1-2 is in use by zrnview (pid 4711)");
    EXPECT_FALSE(finding.remedy.contains(QLatin1String("1-9")));
}

TEST(Findings, ACameraThatCannotBeOpenedIsAProblemOfItsOwn)
{
    zrn::BusCamera camera = makeCamera();
    camera.serial = "ZR7";
    EXPECT_EQ(judgeOpening(camera, true).verdict, Verdict::Good);
    const Finding finding = judgeOpening(camera, false);
    EXPECT_EQ(finding.verdict, Verdict::Problem);
    EXPECT_EQ(finding.message,
              "the driver could not open the camera at 1-2 (ZR7), /dev/bus/usb/001/007");
}

TEST(Findings, TransferMemoryOfAllCamerasIsSetAgainstTheLimit)
{
    const std::vector<zrn::BusCamera> one{makeCamera()};
    const std::vector<zrn::BusCamera> four(4, makeCamera()); // 4 x 300 KiB
    EXPECT_EQ(judgeTransferMemory(one, 1).verdict, Verdict::Good);
    EXPECT_EQ(judgeTransferMemory(four, 0).verdict, Verdict::Good);
    EXPECT_EQ(judgeTransferMemory(four, std::nullopt).verdict, Verdict::Unknown);
    const Finding tooSmall = judgeTransferMemory(four, 1);
    EXPECT_EQ(tooSmall.verdict, Verdict::Problem);
    EXPECT_TRUE(tooSmall.remedy.contains(QLatin1String("echo 2 |")));
}

TEST(Findings, AFigureThatIsGuessedSaysSo)
{
    const std::vector<zrn::BusCamera> four(4, makeBulkCamera()); // 4 x 301 KiB
    const Finding tooSmall = judgeTransferMemory(four, 1);
    EXPECT_EQ(tooSmall.verdict, Verdict::Warning);
    EXPECT_TRUE(tooSmall.message.contains(QLatin1String("2 MiB if each payload is a whole frame")));
    const Finding enough = judgeTransferMemory(four, 16);
    EXPECT_EQ(enough.verdict, Verdict::Good);
    EXPECT_TRUE(enough.message.contains(QLatin1String("larger ones more")));
}

TEST(Findings, APayloadSizeThatTheCameraToldIsBelieved)
{
    zrn::BusCamera camera = makeBulkCamera();
    camera.payloadBytes = 1024 * 1024;
    const Finding tooSmall = judgeTransferMemory({camera}, 16);
    EXPECT_EQ(tooSmall.verdict, Verdict::Warning);
    EXPECT_TRUE(tooSmall.message.startsWith(
        QLatin1String("the transfers take 100 MiB; usbfs allows 16 MiB;")));
    EXPECT_TRUE(tooSmall.remedy.contains(QLatin1String("echo 100 |")));
    const Finding enough = judgeTransferMemory({camera}, 100);
    EXPECT_EQ(enough.verdict, Verdict::Good);
    EXPECT_EQ(enough.message, QLatin1String("the transfers take 100 MiB; usbfs allows 100 MiB"));
}

TEST(Findings, OneGuessMakesTheSumAGuess)
{
    zrn::BusCamera asked = makeBulkCamera();
    asked.payloadBytes = 128 * 1024; // 12.5 MiB
    const Finding finding = judgeTransferMemory({asked, makeBulkCamera(), makeCamera()}, 16);
    EXPECT_EQ(finding.verdict, Verdict::Good);
    EXPECT_TRUE(finding.message.contains(QLatin1String("14 MiB if each payload")));
}

TEST(Findings, FaultyLibraryVersionsAreNamed)
{
    const LibraryVersions faulty = {{1, 0, 26}, {0, 0, 6}};
    const std::vector<Finding> old = judgeLibraries(faulty, Guards::Missing);
    const std::vector<Finding> guarded = judgeLibraries(faulty, Guards::InEffect);
    const std::vector<Finding> unasked = judgeLibraries(faulty, Guards::Unknown);
    const std::vector<Finding> recent = judgeLibraries({{1, 0, 27}, {0, 0, 7}}, Guards::Missing);
    const std::vector<Finding> hidden = judgeLibraries({}, Guards::InEffect);
    for (const char* const library : {"libusb", "libuvc"}) {
        EXPECT_EQ(find(old, library).verdict, Verdict::Warning);
        EXPECT_EQ(find(guarded, library).verdict, Verdict::Good);
        EXPECT_EQ(find(unasked, library).verdict, Verdict::Unknown);
        EXPECT_EQ(find(recent, library).verdict, Verdict::Good);
        EXPECT_EQ(find(hidden, library).verdict, Verdict::Unknown);
    }
}

TEST(Findings, MissingGuardsAreAWarningWithTheCause)
{
    EXPECT_EQ(judgeGuards(QStringLiteral("in effect")).verdict, Verdict::Good);
    EXPECT_EQ(judgeGuards(QStringLiteral("not needed")).verdict, Verdict::Good);
    EXPECT_EQ(judgeGuards(QString()).verdict, Verdict::Unknown);
    const Finding missing = judgeGuards(QStringLiteral("a cause"));
    EXPECT_EQ(missing.verdict, Verdict::Warning);
    EXPECT_TRUE(missing.message.endsWith(QLatin1String(": a cause")));
}

TEST(Findings, EnumerationMustOpenEveryCamera)
{
    EXPECT_EQ(judgeEnumeration(2, 2).verdict, Verdict::Good);
    EXPECT_EQ(judgeEnumeration(1, 2).verdict, Verdict::Problem);
}

TEST(Findings, EveryPluginFaultIsAProblemWithARemedy)
{
    using zrn::PluginFault;
    zrn::PluginInspection inspection;
    EXPECT_EQ(judgePlugin(inspection).verdict, Verdict::Good);
    for (const PluginFault fault :
         {PluginFault::NotFound, PluginFault::NotAPlugin, PluginFault::OtherQt,
          PluginFault::WrongIid, PluginFault::WrongKey}) {
        inspection.fault = fault;
        EXPECT_EQ(judgePlugin(inspection).verdict, Verdict::Problem);
        EXPECT_FALSE(judgePlugin(inspection).remedy.isEmpty());
    }
}
