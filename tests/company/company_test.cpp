// Two cameras of the driver stream while another user of USB in the same process drives devices of
// his own. He sees what he sees without the driver: the same bytes and codes, in the same order, in
// the same time.

#include "camera_rig.h"
#include "factory_interface.h"
#include "linkage_table.h"
#include "other_user.h"
#include "process_state.h"
#include "streaming_cameras.h"
#include "virtual_camera.h"

#include <QPluginLoader>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <future>

namespace
{

using company::AloneProcess;
using company::LinkageTable;
using company::StreamingCameras;
using company::Transcript;

constexpr std::size_t cameras = 2;
constexpr std::size_t captureDevices = 2;

/// A capture device has no camera terminal: its pictures come in by a connector.
nlohmann::json withoutCameraTerminal(const nlohmann::json& configuration)
{
    constexpr std::uint8_t classInterface = 0x24;
    constexpr std::uint8_t header = 0x01;
    constexpr std::uint8_t inputTerminal = 0x02;
    const std::vector<std::uint8_t> connector{8, classInterface, inputTerminal, 1, 0x01, 0x04, 0,
                                              0};
    const auto bytes = configuration.get<std::vector<std::uint8_t>>();
    std::vector<std::uint8_t> changed;
    std::size_t headerAt = 0;
    std::size_t saved = 0;
    for (std::size_t i = 0; i < bytes.size(); i += bytes[i]) {
        const auto block = bytes.begin() + static_cast<std::ptrdiff_t>(i);
        const bool isClass = bytes[i + 1] == classInterface;
        if (isClass && bytes[i + 2] == header && headerAt == 0) {
            headerAt = changed.size();
        }
        if (isClass && bytes[i + 2] == inputTerminal && saved == 0) {
            changed.insert(changed.end(), connector.begin(), connector.end());
            saved = bytes[i] - connector.size();
        } else {
            changed.insert(changed.end(), block, block + bytes[i]);
        }
    }
    const auto shorten = [&](std::size_t at) {
        const std::size_t length = changed[at] + 256U * changed[at + 1] - saved;
        changed[at] = static_cast<std::uint8_t>(length % 256);
        changed[at + 1] = static_cast<std::uint8_t>(length / 256);
    };
    shorten(2);
    shorten(headerAt + 5);
    return changed;
}

void makeCaptureDevices()
{
    for (std::size_t i = cameras; i < cameras + captureDevices; ++i) {
        VirtualCamera device(i);
        const auto configuration = device.ask("descriptors").at("configuration");
        device.unplug();
        device.ask("set-descriptors", {{"configuration", withoutCameraTerminal(configuration)}});
        device.tell("plug");
    }
}

/// Goes through a case here and in the process without the driver, at the same time. A machine that
/// is busy delays one or the other: the quickest of some rounds are compared.
void expectSame(AloneProcess& alone, const std::string& name)
{
    constexpr int rounds = 20;
    constexpr double tolerance = 50; // milliseconds
    Transcript bestAlone;
    Transcript bestHere;
    const double allowed = tolerance * survival::timeFactor();
    const auto keepBest = [](Transcript& best, const Transcript& latest) {
        if (best.empty()) {
            best = latest;
        }
        for (std::size_t i = 0; i < std::min(best.size(), latest.size()); ++i) {
            best[i].milliseconds = std::min(best[i].milliseconds, latest[i].milliseconds);
        }
    };
    std::string late;
    for (int round = 0; round < rounds; ++round) {
        auto there = std::async(std::launch::async, [&] { return alone.run(name); });
        const Transcript here = company::runHere(name);
        const Transcript wanted = there.get();
        for (std::size_t i = 0; i < std::min(wanted.size(), here.size()); ++i) {
            ASSERT_EQ(here[i].name, wanted[i].name);
            ASSERT_EQ(here[i].outcome, wanted[i].outcome)
                << "step " << i << ", " << here[i].name << ", after " << here[i].milliseconds
                << " ms, alone " << wanted[i].milliseconds;
        }
        ASSERT_EQ(here.size(), wanted.size());
        keepBest(bestAlone, wanted);
        keepBest(bestHere, here);
        late.clear();
        for (std::size_t i = 0; i < bestHere.size(); ++i) {
            if (std::abs(bestHere[i].milliseconds - bestAlone[i].milliseconds) > allowed) {
                late += bestHere[i].name + ": " + std::to_string(bestHere[i].milliseconds) +
                        " ms, alone " + std::to_string(bestAlone[i].milliseconds) + "; ";
            }
        }
        if (late.empty()) {
            return;
        }
    }
    FAIL() << late;
}

/// Once for the process.
void prepare()
{
    static const bool isPrepared = [] {
        makeCaptureDevices();
        return true;
    }();
    static_cast<void>(isPrepared);
}

class Company : public testing::TestWithParam<const char*>
{
protected:
    static void SetUpTestSuite()
    {
        prepare();
        s_alone = std::make_unique<AloneProcess>();
        QPluginLoader plugin(QStringLiteral(ZRN_PLUGIN)); // which leaves it loaded
        auto* const factory = qobject_cast<IFactory*>(plugin.instance());
        ASSERT_TRUE(factory);
        s_cameras = std::make_unique<StreamingCameras>(*factory);
        EXPECT_EQ(s_cameras->count(), cameras);
    }
    static void TearDownTestSuite()
    {
        EXPECT_TRUE(s_cameras->allDeliver());
        s_cameras.reset();
        s_alone.reset();
    }

    static std::unique_ptr<AloneProcess> s_alone;
    static std::unique_ptr<StreamingCameras> s_cameras;
};

std::unique_ptr<AloneProcess> Company::s_alone;
std::unique_ptr<StreamingCameras> Company::s_cameras;

TEST_P(Company, SeesTheSame)
{
    expectSame(*s_alone, GetParam());
}

std::string nameOf(const testing::TestParamInfo<const char*>& info)
{
    return info.param;
}

INSTANTIATE_TEST_SUITE_P(Usb, Company, testing::ValuesIn(usbCases), nameOf);
INSTANTIATE_TEST_SUITE_P(Uvc, Company, testing::ValuesIn(uvcCases), nameOf);

/// What is left when the driver is unloaded, after its cameras have streamed.
class CompanyAfterUnloading : public testing::TestWithParam<const char*>
{
protected:
    static void SetUpTestSuite()
    {
        prepare();
        s_alone = std::make_unique<AloneProcess>();
        company::loadOtherUser(); // so that libuvc stays
        expectSame(*s_alone, "bulk");
        s_before = company::linkageTableOf("libuvc.so");
        s_stateBefore = company::processState();
        QPluginLoader plugin(QStringLiteral(ZRN_PLUGIN));
        plugin.setLoadHints({});
        auto* const factory = qobject_cast<IFactory*>(plugin.instance());
        ASSERT_TRUE(factory);
        {
            StreamingCameras streaming(*factory);
            expectSame(*s_alone, "bulk");
            EXPECT_TRUE(streaming.allDeliver());
            for (const auto& [name, value] : company::lastingState()) {
                EXPECT_EQ(value, s_stateBefore.at(name)) << name << ", beside streams";
            }
        }
        s_isUnloaded = plugin.unload();
        s_stateAfter = company::processState();
    }
    static void TearDownTestSuite() { s_alone.reset(); }

    static std::unique_ptr<AloneProcess> s_alone;
    static LinkageTable s_before;
    static std::map<std::string, std::string> s_stateBefore;
    static std::map<std::string, std::string> s_stateAfter;
    static bool s_isUnloaded;
};

std::unique_ptr<AloneProcess> CompanyAfterUnloading::s_alone;
LinkageTable CompanyAfterUnloading::s_before;
std::map<std::string, std::string> CompanyAfterUnloading::s_stateBefore;
std::map<std::string, std::string> CompanyAfterUnloading::s_stateAfter;
bool CompanyAfterUnloading::s_isUnloaded = false;

TEST_F(CompanyAfterUnloading, NothingIsMapped)
{
    EXPECT_TRUE(s_isUnloaded);
    EXPECT_EQ(company::mappingsWith("/libzrncamera"), std::vector<std::string>());
}

TEST_F(CompanyAfterUnloading, LinkageTableIsAsBefore)
{
    EXPECT_FALSE(s_before.targets.empty());
    const LinkageTable after = company::linkageTableOf("libuvc.so");
    EXPECT_EQ(after.targets, s_before.targets);
    EXPECT_EQ(after.permissions, s_before.permissions);
}

TEST_F(CompanyAfterUnloading, ProcessIsAsBefore)
{
    for (const auto& [name, value] : s_stateAfter) {
        EXPECT_EQ(value, s_stateBefore.at(name)) << name;
    }
}

TEST_P(CompanyAfterUnloading, SeesTheSame)
{
    expectSame(*s_alone, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Usb, CompanyAfterUnloading,
                         testing::Values("bulk", "stream", "time_outs", "cancelling", "stalls"),
                         nameOf);

} // namespace
