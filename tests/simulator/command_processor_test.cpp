#include "control/command_processor.h"
#include "control/json_views.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

namespace zrnsim
{
namespace
{

using nlohmann::json;

/// Cables without a transport.
class FakeBus : public Bus
{
public:
    explicit FakeBus(std::size_t cameras)
        : plugged(cameras, true)
    {
    }

    void unplug(std::size_t index, bool isAnnounced) override
    {
        plugged.at(index) = false;
        wasAnnounced = isAnnounced;
    }
    void plug(std::size_t index, std::optional<std::uint64_t> serial, bool isAnnounced) override
    {
        plugged.at(index) = true;
        newSerial = serial;
        wasAnnounced = isAnnounced;
    }
    bool isPlugged(std::size_t index) const override { return plugged.at(index); }
    std::string location(std::size_t index) const override { return "1:" + std::to_string(index); }

    std::vector<bool> plugged;
    std::optional<std::uint64_t> newSerial;
    bool wasAnnounced = false;
};

class CommandProcessorTest : public testing::Test
{
protected:
    CommandProcessorTest()
    {
        for (const char* const text : {"type1,serial=18446744073709551615", "type2,serial=5"}) {
            cameras.push_back(std::make_unique<Camera>(
                parseCamera(text, 1), [](const FrameRequest&, Bytes& frame) { frame.clear(); }));
        }
    }

    json run(const json& request) { return processor.execute(request); }

    CameraList cameras;
    FakeBus bus{2};
    CommandProcessor processor{cameras, bus};
};

TEST_F(CommandProcessorTest, ListsTheCamerasWithExactSerials)
{
    const json answer = run({{"command", "cameras"}});
    ASSERT_TRUE(answer.at("ok"));
    ASSERT_EQ(answer.at("cameras").size(), 2U);
    EXPECT_EQ(answer["cameras"][0]["serial"], "18446744073709551615");
    EXPECT_EQ(answer["cameras"][1]["model"], "type2");
    EXPECT_EQ(answer["cameras"][1]["location"], "1:1");
    EXPECT_EQ(answer["cameras"][1]["streaming"], false);
}

TEST_F(CommandProcessorTest, FindsCamerasByNumberAndBySerial)
{
    EXPECT_EQ(run({{"command", "camera"}})["camera"]["model"], "type1");
    EXPECT_EQ(run({{"command", "camera"}, {"camera", 1}})["camera"]["model"], "type2");
    EXPECT_EQ(run({{"command", "camera"}, {"serial", "5"}})["camera"]["model"], "type2");
    EXPECT_EQ(run({{"command", "camera"}, {"serial", 5}})["camera"]["model"], "type2");
    EXPECT_FALSE(run({{"command", "camera"}, {"camera", 2}})["ok"]);
    EXPECT_FALSE(run({{"command", "camera"}, {"serial", "6"}})["ok"]);
}

TEST_F(CommandProcessorTest, RefusesWhatItDoesNotUnderstand)
{
    for (const json& request : {json::object(), json{{"command", "dance"}}, json{{"command", 5}},
                                json{{"command", "halt"}, {"camera", "first"}},
                                json{{"command", "set-control"}, {"control", "zoom"}},
                                json{{"command", "control-fault"}, {"action", "explode"}},
                                json{{"command", "transfer-fault"}, {"kind", "melt"}},
                                json{{"command", "plug"}, {"serial", "seven"}},
                                json{{"command", "frame-number"}}, json{{"command", "emit"}}}) {
        const json answer = run(request);
        EXPECT_FALSE(answer.at("ok")) << request;
        EXPECT_FALSE(answer.at("error").get<std::string>().empty()) << request;
    }
}

TEST_F(CommandProcessorTest, RefusesUnknownFieldsAndValuesOfAWrongType)
{
    struct Case {
        json request;
        const char* error;
    };
    const Case cases[]{
        {{{"command", "emit"}, {"cuont", 5}}, "there is no field \"cuont\"; there are camera, "},
        {{{"command", "emit"}, {"count", "many"}},
         "count: \"many\" is not a whole number from 0 to "},
        {{{"command", "emit"}, {"count", 1.5}}, "count: 1.5 is not a whole number"},
        {{{"command", "emit"}, {"count", -1}}, "count: -1 is not a whole number"},
        {{{"command", "unplug"}, {"announced", "no"}}, "announced: \"no\" is not true or false"},
        {{{"command", "unplug"}, {"camera", 7}}, "there is no camera 7"},
        {{{"command", "trace"}, {"since", nullptr}}, "since: null is not a whole number"},
        {{{"command", "frame-number"}}, "number is missing"},
        {{{"command", "frame-number"}, {"number", 4'294'967'296}}, "number: 4294967296 is not"},
        {{{"command", "set-control"}, {"control", "zoom"}},
         "control: \"zoom\" is not known; there are "},
        {{{"command", "control-fault"}, {"action", "stall"}, {"target", "gian"}},
         "target: \"gian\" is"},
        {{{"command", "control-fault"}, {"action", "stall"}, {"request", 5}},
         "request: 5 is not a text"},
        {{{"command", "set-descriptors"}, {"configuration", {1, 256}}},
         "configuration: [1,256] is"},
        {{{"command", "plug"}, {"serial", 1e30}}, "serial: 1e+30 is not a number of 64 bits"},
        {{{"command", "cameras"}, {"camera", 0}}, "there is no field \"camera\"; there is none"},
        {{{"command", "dance"}}, "there is no command \"dance\"; there are cameras, camera, "},
        {{{"command", 5}}, "there is no command 5"},
        {json::object(), "command is missing"},
    };
    for (const Case& c : cases) {
        const json answer = run(c.request);
        EXPECT_FALSE(answer.at("ok")) << c.request;
        EXPECT_THAT(answer.at("error").get<std::string>(), testing::StartsWith(c.error));
    }
}

TEST_F(CommandProcessorTest, NoValueOfNoFieldGetsPastTheChecks)
{
    const json values[]{nullptr,
                        true,
                        -1,
                        0,
                        300,
                        1e300,
                        18446744073709551615U,
                        "",
                        "gain",
                        json::array({1, -1}),
                        json::object()};
    const char* const fields[]{"camera",       "serial",        "since",
                               "control",      "cur",           "count",
                               "number",       "configuration", "announced",
                               "action",       "request",       "target",
                               "milliseconds", "length",        "value",
                               "sizeDelta",    "bytes",         "kind",
                               "lostPayloads", "errorPayloads", "withoutEndOfFrame"};
    for (const char* const command : {"cameras",
                                      "camera",
                                      "counters",
                                      "controls",
                                      "trace",
                                      "frames",
                                      "set-control",
                                      "emit",
                                      "frame-number",
                                      "descriptors",
                                      "set-descriptors",
                                      "unplug",
                                      "plug",
                                      "control-fault",
                                      "frame-fault",
                                      "transfer-fault",
                                      "refuse-submissions",
                                      "halt",
                                      "freeze",
                                      "thaw",
                                      "clear-faults"}) {
        for (const char* const field : fields) {
            for (const json& value : values) {
                json request{{"command", command}, {"control", "gain"}, {"action", "stall"}};
                request["kind"] = "overflow";
                request[field] = value;
                for (const bool hasOthers : {true, false}) {
                    if (!hasOthers) {
                        request = {{"command", command}, {field, value}};
                    }
                    EXPECT_NO_THROW(EXPECT_TRUE(run(request).at("ok").is_boolean())) << request;
                }
            }
        }
    }
}

TEST_F(CommandProcessorTest, AnswersLinesThatAreNoJson)
{
    for (const char* const line : {"", "{", "[1]", "3", "\xff\xfe"}) {
        const json answer = json::parse(processor.executeLine(line));
        EXPECT_FALSE(answer.at("ok")) << line;
    }
    EXPECT_TRUE(json::parse(processor.executeLine(R"({"command":"cameras"})")).at("ok"));
}

TEST_F(CommandProcessorTest, PullsAndPlugsCables)
{
    EXPECT_TRUE(run({{"command", "unplug"}, {"camera", 1}, {"announced", false}})["ok"]);
    EXPECT_FALSE(bus.plugged[1]);
    EXPECT_FALSE(bus.wasAnnounced);
    EXPECT_TRUE(run({{"command", "plug"}, {"camera", 1}, {"serial", "99"}})["ok"]);
    EXPECT_TRUE(bus.plugged[1]);
    EXPECT_TRUE(bus.wasAnnounced);
    EXPECT_EQ(bus.newSerial, 99U);
    run({{"command", "plug"}, {"camera", 1}});
    EXPECT_EQ(bus.newSerial, std::nullopt);
}

TEST_F(CommandProcessorTest, ChangesControlsAsTheFirmwareCould)
{
    run({{"command", "set-control"}, {"camera", 0}, {"control", "hue"}, {"cur", -1}, {"min", -9}});
    const json controls = run({{"command", "controls"}})["controls"];
    EXPECT_EQ(controls["hue"]["cur"], -1);
    EXPECT_EQ(controls["hue"]["min"], -9);
    EXPECT_EQ(controls["hue"]["max"], 255);
}

TEST_F(CommandProcessorTest, ControlFaultsReachTheCamera)
{
    run({{"command", "control-fault"}, {"action", "value"}, {"target", "gain"}, {"value", 513}});
    const ControlReply reply = cameras[0]->control({0xa1, uvc::getCur, 0x0400, 0x0200, 2}, {});
    EXPECT_EQ(reply.data, (Bytes{1, 2}));
    EXPECT_EQ(run({{"command", "counters"}})["counters"]["controlFaults"], 1);
    const json trace = run({{"command", "trace"}})["trace"];
    ASSERT_EQ(trace.size(), 1U);
    EXPECT_EQ(trace[0]["target"], "gain");
    EXPECT_EQ(trace[0]["data"], "0102");
}

TEST_F(CommandProcessorTest, FrameListCanBeRenderedAgain)
{
    SentFrame frame;
    frame.request = {3, 640, 480, 2, 4'000'000'000U, {0.25, 1.0 / 3, {1, 2, 3, 250}}};
    const json text = json::parse(describeFrames({frame}).dump());
    const FrameRequest request = parseFrameRequest(text.at(0));
    EXPECT_EQ(request.sensorType, 3);
    EXPECT_EQ(request.width, 640);
    EXPECT_EQ(request.height, 480);
    EXPECT_EQ(request.bytesPerPosition, 2);
    EXPECT_EQ(request.frameNumber, 4'000'000'000U);
    EXPECT_EQ(request.controls, frame.request.controls);
}

} // namespace
} // namespace zrnsim
