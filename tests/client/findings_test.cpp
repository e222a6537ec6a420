#include "client/findings.h"
#include "made_up_system.h"
#include "udev_rule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace zrn;

namespace
{

BusCamera makeCamera()
{
    BusCamera camera;
    camera.port = "1-2";
    camera.bus = 1;
    camera.address = 7;
    camera.nodeExists = true;
    camera.accessible = true;
    // Isochronous, 64 x 48 pixels of 8 bits, packets of 1024 bytes: 100 transfers of 3 packets.
    std::string frame(30, '\0');
    frame[0] = 30;
    frame[1] = 0x24;
    frame[2] = 0x05;
    frame[5] = 64;
    frame[7] = 48;
    std::string format(27, '\0');
    format[0] = 27;
    format[1] = 0x24;
    format[2] = 0x04;
    format[21] = 8;
    camera.descriptors = std::string("\x09\x04\x01\x00\x01\x0e\x02\x00\x00", 9) + format + frame +
                         std::string("\x07\x05\x81\x05\x00\x04\x01", 7);
    return camera;
}

BusCamera makeBulkCamera()
{
    BusCamera camera = makeCamera();
    camera.descriptors[camera.descriptors.size() - 4] = 2;
    return camera;
}

const Finding& find(const std::vector<Finding>& findings, const char* subject)
{
    static const Finding none;
    for (const Finding& finding : findings) {
        if (finding.subject == subject) {
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
    EXPECT_THAT(findings[0].message, HasSubstr(cameraIds));
}

TEST(Findings, ACameraThatMayBeOpenedIsGood)
{
    for (const Finding& finding : judgeBus({makeCamera()})) {
        EXPECT_EQ(finding.verdict, Verdict::Good) << finding.message;
    }
}

TEST(Findings, MissingPermissionShowsTheUdevRule)
{
    BusCamera camera = makeCamera();
    camera.accessible = false;
    const Finding finding = find(judgeBus({camera}), "permission");
    EXPECT_EQ(finding.verdict, Verdict::Problem);
    EXPECT_THAT(finding.message, HasSubstr(camera.node()));
    EXPECT_THAT(finding.remedy, HasSubstr(udevRule));
    EXPECT_THAT(finding.remedy, HasSubstr(udevRulePath));
    EXPECT_THAT(finding.remedy, HasSubstr("udevadm control --reload"));

    camera.nodeExists = false;
    EXPECT_EQ(find(judgeBus({camera}), "permission").verdict, Verdict::Problem);
}

TEST(Findings, ARuleForTheSeatAloneIsCompletedByAGroup)
{
    BusCamera camera = makeCamera();
    camera.accessible = false;
    camera.isForSeat = true;
    const std::string remedy = find(judgeBus({camera}), "permission").remedy;
    EXPECT_THAT(remedy, HasSubstr(udevGroupRule));
    EXPECT_THAT(remedy, HasSubstr("SupplementaryGroups=plugdev"));

    // With such a rule only the user is missing in the group.
    camera.group = 0;
    const Finding finding = find(judgeBus({camera}), "permission");
    EXPECT_THAT(finding.remedy, HasSubstr("usermod --append --groups root NAME"));
    EXPECT_THAT(finding.remedy, Not(HasSubstr(udevRulePath)));
}

TEST(Findings, AKernelDriverIsAWarning)
{
    BusCamera camera = makeCamera();
    camera.kernelDrivers = {"uvcvideo"};
    camera.videoNodes = {"/dev/video2", "/dev/video3"};
    const Finding finding = find(judgeBus({camera}), "kernel-driver");
    EXPECT_EQ(finding.verdict, Verdict::Warning);
    EXPECT_THAT(finding.message, HasSubstr("uvcvideo"));
    EXPECT_THAT(finding.remedy, HasSubstr("'fuser -v /dev/video2 /dev/video3'"));
}

TEST(Findings, ACameraInUseNamesItsHolderAndNoOtherCamera)
{
    BusCamera held = makeCamera();
    held.use = Use::Held;
    held.holders = {{4711, "zrnview"}};
    BusCamera free = makeCamera();
    free.port = "1-9";
    const Finding finding = find(judgeBus({held, free}), "use");
    EXPECT_EQ(finding.verdict, Verdict::Warning);
    EXPECT_EQ(finding.message, "the camera at 1-2 is in use by zrnview (pid 4711)");
    EXPECT_THAT(finding.remedy, Not(HasSubstr("1-9")));
}

TEST(Findings, ACameraThatCannotBeOpenedIsAProblemOfItsOwn)
{
    BusCamera camera = makeCamera();
    camera.serial = "ZR7";
    EXPECT_EQ(judgeOpening(camera, true).verdict, Verdict::Good);
    const Finding finding = judgeOpening(camera, false);
    EXPECT_EQ(finding.verdict, Verdict::Problem);
    EXPECT_EQ(finding.message,
              "the driver could not open the camera at 1-2 (ZR7), /dev/bus/usb/001/007");
}

TEST(Findings, TransferMemoryOfAllCamerasIsSetAgainstTheLimit)
{
    const std::vector<BusCamera> one{makeCamera()};
    const std::vector<BusCamera> four(4, makeCamera()); // 4 x 300 KiB
    EXPECT_EQ(judgeTransferMemory(one, 1).verdict, Verdict::Good);
    EXPECT_EQ(judgeTransferMemory(four, 0).verdict, Verdict::Good);
    EXPECT_EQ(judgeTransferMemory(four, std::nullopt).verdict, Verdict::Unknown);
    const Finding tooSmall = judgeTransferMemory(four, 1);
    EXPECT_EQ(tooSmall.verdict, Verdict::Problem);
    EXPECT_THAT(tooSmall.remedy, HasSubstr("echo 2 |"));
}

TEST(Findings, AFigureThatIsGuessedSaysSo)
{
    const std::vector<BusCamera> four(4, makeBulkCamera()); // 4 x 301 KiB
    const Finding tooSmall = judgeTransferMemory(four, 1);
    EXPECT_EQ(tooSmall.verdict, Verdict::Unknown);
    EXPECT_EQ(
        tooSmall.message,
        "not every camera could be asked how large its payloads are: usbfs allows 1 MiB, which "
        "most keep within; payloads of whole frames take 2 MiB");
    const Finding enough = judgeTransferMemory(four, 16);
    EXPECT_EQ(enough.verdict, Verdict::Good);
    EXPECT_EQ(enough.message, "payloads of whole frames take 2 MiB; usbfs allows 16 MiB");
}

TEST(Findings, APayloadSizeThatTheCameraToldIsBelieved)
{
    BusCamera camera = makeBulkCamera();
    camera.payloadBytes = 1024 * 1024;
    const Finding tooSmall = judgeTransferMemory({camera}, 16);
    EXPECT_EQ(tooSmall.verdict, Verdict::Warning);
    EXPECT_THAT(tooSmall.message, StartsWith("the transfers take 100 MiB; usbfs allows 16 MiB;"));
    EXPECT_THAT(tooSmall.remedy, HasSubstr("echo 100 |"));
    const Finding enough = judgeTransferMemory({camera}, 100);
    EXPECT_EQ(enough.verdict, Verdict::Good);
    EXPECT_EQ(enough.message, "the transfers take 100 MiB; usbfs allows 100 MiB");
}

TEST(Findings, OneGuessMakesTheSumAGuess)
{
    BusCamera asked = makeBulkCamera();
    asked.payloadBytes = 128 * 1024; // 12.5 MiB
    const Finding finding = judgeTransferMemory({asked, makeBulkCamera(), makeCamera()}, 16);
    EXPECT_EQ(finding.verdict, Verdict::Good);
    EXPECT_THAT(finding.message, HasSubstr("payloads of whole frames take 14 MiB"));
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
    EXPECT_EQ(judgeGuards("in effect").verdict, Verdict::Good);
    EXPECT_EQ(judgeGuards("not needed").verdict, Verdict::Good);
    EXPECT_EQ(judgeGuards({}).verdict, Verdict::Unknown);
    const Finding missing = judgeGuards("a cause");
    EXPECT_EQ(missing.verdict, Verdict::Warning);
    EXPECT_THAT(missing.message, EndsWith(": a cause"));
}

TEST(Findings, AClockThatNobodySynchronisesIsAWarning)
{
    using namespace std::chrono_literals;
    const Finding good = judgeClock(SystemClock{true, 12'345us, 37s});
    EXPECT_EQ(good.verdict, Verdict::Good);
    EXPECT_THAT(good.message, EndsWith("within 12 ms; TAI is 37 s ahead of UTC"));
    EXPECT_TRUE(good.remedy.empty());
    const Finding rough = judgeClock(SystemClock{true, 100'001us, 0s});
    EXPECT_EQ(rough.verdict, Verdict::Warning);
    EXPECT_FALSE(rough.remedy.empty());
    const Finding alone = judgeClock(SystemClock{false, 16s, 0s});
    EXPECT_EQ(alone.verdict, Verdict::Warning);
    EXPECT_FALSE(alone.remedy.empty());
    EXPECT_EQ(judgeClock(std::nullopt).verdict, Verdict::Unknown);
}

TEST(Findings, EnumerationMustOpenEveryCamera)
{
    EXPECT_EQ(judgeEnumeration(2, 2).verdict, Verdict::Good);
    EXPECT_EQ(judgeEnumeration(1, 2).verdict, Verdict::Problem);
}

TEST(Findings, EveryPluginFaultIsAProblemWithARemedy)
{
    PluginInspection inspection;
    EXPECT_EQ(judgePlugin(inspection).verdict, Verdict::Good);
    for (const PluginFault fault :
         {PluginFault::NotFound, PluginFault::NotAPlugin, PluginFault::OtherQt,
          PluginFault::WrongIid, PluginFault::WrongKey}) {
        inspection.fault = fault;
        EXPECT_EQ(judgePlugin(inspection).verdict, Verdict::Problem);
        EXPECT_FALSE(judgePlugin(inspection).remedy.empty());
    }
}

TEST(Findings, APortThatIsTooSlowNamesTheRateThatItAllows)
{
    BusCamera camera = makeBulkCamera();
    EXPECT_EQ(judgeSpeed(camera).verdict, Verdict::Unknown);
    camera.megabits = 480;
    EXPECT_EQ(judgeSpeed(camera).verdict, Verdict::Good) << "no rate is told";

    // 1280 x 1024 of 16 bits, 60 frames/s or 30.
    std::string& bytes = camera.descriptors;
    const std::size_t format = 9;
    const std::size_t frame = format + 27;
    bytes[format + 21] = 16;
    bytes.replace(frame + 5, 4, std::string("\x00\x05\x00\x04", 4));
    bytes.replace(frame + 21, 4, std::string("\x15\x16\x05\x00", 4)); // 333333, the default
    bytes[frame + 25] = 1;
    bytes.replace(frame + 26, 4, std::string("\x0a\x8b\x02\x00", 4)); // 166666
    const Finding slow = judgeSpeed(camera);
    EXPECT_EQ(slow.verdict, Verdict::Warning);
    EXPECT_EQ(slow.message, "the camera at 1-2 is connected at 480 Mbit/s, which carries about 15 "
                            "frames/s of 1280 x 1024; it offers 60");
    EXPECT_THAT(slow.remedy, HasSubstr("USB 3"));
    camera.megabits = 5000;
    EXPECT_EQ(judgeSpeed(camera).verdict, Verdict::Good);
    EXPECT_EQ(judgeSpeed(camera).message, "the camera at 1-2 is connected at 5 Gbit/s");
}

TEST(Findings, AutosuspendIsAWarningWhereTheKernelDoesIt)
{
    MadeUpSystem system;
    const BusCamera camera = makeCamera();
    EXPECT_FALSE(judgeAutosuspend(camera, system.root()));
    const std::string file = "/sys/bus/usb/devices/1-2/power/control";
    system.write(file, "on\n");
    EXPECT_EQ(judgeAutosuspend(camera, system.root())->verdict, Verdict::Good);
    system.write(file, "auto\n");
    const auto finding = judgeAutosuspend(camera, system.root());
    EXPECT_EQ(finding->verdict, Verdict::Warning);
    EXPECT_THAT(finding->remedy, StartsWith("echo on | sudo tee " + file + "\n"));
}
