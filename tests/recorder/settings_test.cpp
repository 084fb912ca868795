#include "recorder/settings.h"

#include <gtest/gtest.h>

#include "recorder/failure.h"

namespace {

constexpr char kEncode[] =
    R"({"ExtraFormat":{"AudioEnable":false,"Video":{"Compression":"H.264","FPS":25,"GOP":10}},)"
    R"("MainFormat":{"Audio":{"BitRate":0},"AudioEnable":false,)"
    R"("Video":{"Compression":"H.265","FPS":25,"GOP":2,"Resolution":"1080P"}}})";
constexpr char kMotionOff[] = R"({"Enable":false,"Level":3,"Region":["0x00000000"]})";
constexpr char kMotionOn[] = R"({"Enable":true,"Level":3,"Region":["0x00000000"]})";
constexpr char kNet[] =
    R"({"GateWay":"0x010200C0","HostIP":"0x0A0200C0","HttpPort":80,"MAC":"AB:cd:0","TCPPort":9000})";
constexpr char kOddNet[] = R"({"HttpPort":443,"MAC":"AB:cd:0","TCPPort":9000})";
constexpr char kDhcp[] = R"([{"Enable":false,"Interface":"eth0"},{"Enable":false,"Interface":"eth0"}])";

// What is asked for, where the camera shows something else, and what is sent: the member named like the set,
// behind it the MAC where there is one; "" when nothing is sent, "!" and part of the reason when nothing can
// be.
const struct {
    const char *name, *shown, *asked, *sent;
} kCases[] = {
    {"Simplify.Encode", kEncode, kEncode, ""},
    {"Simplify.Encode", kEncode, R"([{"MainFormat":{"Video":{"Resolution":"720P"}}}])",
     R"({"MainFormat":{"Video":{"Resolution":"720P"}}})"},
    {"Simplify.Encode", kEncode, R"({"MainFormat":{"Video":{"FPS":12}},"ExtraFormat":{"Video":{"FPS":12}}})",
     R"({"MainFormat":{"Video":{"FPS":12,"GOP":2}},"ExtraFormat":{"Video":{"FPS":12}}})"},
    {"Simplify.Encode", kEncode, R"({"ExtraFormat":{"AudioEnable":true}})",
     R"({"ExtraFormat":{"AudioEnable":true},"MainFormat":{"AudioEnable":true,"Audio":{"BitRate":0}}})"},
    {"Simplify.Encode", kEncode, R"({"MainFormat":{"Audio":{"BitRate":9}}})",
     R"({"MainFormat":{"Audio":{"BitRate":9},"AudioEnable":false}})"},
    {"Simplify.Encode", kEncode, "[7]", "!is a JSON object"},
    {"Detect.MotionDetect.[0]", kMotionOn, R"({"Level":5})", R"({"Level":5,"Enable":true})"},
    {"Detect.MotionDetect.[0]", kMotionOn, R"({"enable":true})", R"({"enable":true})"},
    {"Detect.MotionDetect.[0]", kMotionOff, R"({"Enable":true})", R"({"Enable":true,"Level":3})"},
    {"AVEnc.VideoColor.[0]", "[]", R"({"VideoColorParam":{"Contrast":7}})",
     R"([{"VideoColorParam":{"Contrast":7}}])"},
    {"System.TimeZone", R"({"timeMin":60})", R"({"FirstUserTimeZone":1})",
     R"({"FirstUserTimeZone":1,"timeMin":60})"},
    {"System.TimeZone", R"({"timeMin":60})", R"({"timeMin":-720})", R"({"timeMin":-720})"},
    {"System.TimeZone", R"({"timeMin":60})", R"({"timeMin":345})", "!multiple of 30"},
    {"System.TimeZone", R"({"timeMin":60})", R"({"timeMin":750})", "!multiple of 30"},
    {"NetWork.NetDHCP", kDhcp, R"({"Enable":true})", R"([{"Enable":true,"Interface":"eth0"}])"},
    {"NetWork.NetDHCP", kDhcp, R"([{"Enable":true,"Interface":"wlan0"}])", "!interface is 'eth0'"},
    {"NetWork.NetDHCP", kDhcp, "{}", "!needs \"Enable\""},
    {"NetWork.NetCommon", kNet, R"({"HostIP":"192.0.2.77"})",
     R"({"HostIP":"0x4D0200C0","HttpPort":80,"TCPPort":9000}AB:cd:0)"},
    {"NetWork.NetCommon", kNet, R"({"HostIP":"192.0.2"})", "!HostIP is no address"},
    {"NetWork.NetCommon", kNet, R"({"Submask":255})", "!Submask is no address"},
    {"NetWork.NetCommon", kNet, R"({"HttpPort":1024})", "!not 1024"},
    {"NetWork.NetCommon", kNet, R"({"TCPPort":65536})", "!not 65536"},
    {"NetWork.NetCommon", kOddNet, R"({"HostName":"a"})", "!not 443"},
    {"NetWork.NetCommon", kOddNet, R"({"HttpPort":8080})", R"({"HttpPort":8080,"TCPPort":9000}AB:cd:0)"},
    {"General.General", "{}", R"({"AutoLogout":3})", R"({"AutoLogout":3})"},
};

TEST(Settings, SendWhatTheCameraTakesAndKeepTheRest)
{
    for (const auto& [name, shown, asked, expected] : kCases) {
        SCOPED_TRACE(std::string(name) + " " + asked);
        const std::string wanted = expected;
        const ConfigName& row = *FindConfigName(name);
        const JsonPtr present(cJSON_Parse(shown));
        const JsonPtr wish(cJSON_Parse(asked));
        std::string sent;
        try {
            const std::string body = SetRequestBody(row, ReadAsked(row, wish.get()).get(),
                                                    ConfigElement(row, present.get()), "0x00000007");
            const JsonPtr request(cJSON_Parse(body.c_str()));
            sent = PrintJson(cJSON_GetObjectItem(request.get(), row.setName), false);
            if (const char* mac = GetJsonString(request.get(), "MAC"))
                sent += mac;
            EXPECT_EQ(body.find(std::string(R"("Name":")") + row.setName + "\""),
                      body.empty() ? body.npos : 1);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kExitUsage);
            sent = "!" + std::string(failure.what());
        }
        if (wanted.starts_with("!")) {
            EXPECT_TRUE(sent.starts_with("!") && sent.find(wanted.substr(1)) != sent.npos) << sent;
        } else {
            EXPECT_EQ(sent, wanted);
        }
    }
}

TEST(Json, NamesEveryLeafThatDiffers)
{
    // Before, now, the lines of all differences, and of those that are wanted.
    const char* const kTrees[][4] = {
        {R"({"a":[1,{"b":true}]})", R"({"a":[1,{"b":true}]})", "", ""},
        {R"({"a":[1,{"b":true}]})", R"({"a":[2,{"b":1},3],"c":{}})",
         "a/0: 1 -> 2\na/1/b: true -> 1\na/2: (none) -> 3\nc: (none) -> {}\n",
         "a/0: 1 -> 2\na/1/b: true -> 1\n"},
        {R"({"a":"0x0A","b":"0xa"})", R"({"a":"0x0000000a"})",
         "a: \"0x0A\" -> \"0x0000000a\"\nb: \"0xa\" -> (none)\n", "b: \"0xa\" -> (none)\n"},
        {"{\"\x1b[2J\":1}", "{}", ".[2J: 1 -> (none)\n", ".[2J: 1 -> (none)\n"}, // nothing a terminal obeys
    };
    for (const auto& [before, now, all, wanted] : kTrees) {
        const JsonPtr a(cJSON_Parse(before));
        const JsonPtr b(cJSON_Parse(now));
        std::string lines, wantedLines;
        for (const JsonDifference& difference : CompareJson(a.get(), b.get()))
            lines += DifferenceLine(difference) + "\n";
        for (const JsonDifference& difference : CompareWanted(a.get(), b.get()))
            wantedLines += DifferenceLine(difference) + "\n";
        EXPECT_EQ(lines, all);
        EXPECT_EQ(wantedLines, wanted);
    }
}

} // namespace
