// What each change sends to the parameter host: exactly these fields, in this order.

#include "config/set_config.h"

#include <optional>

#include "camera/parameter_fields.h"
#include "media/monitor_requests.h"
#include "tests/camera/parameter_host.h"
#include "tests/exchange.h"

extern "C" void __wrap__Z7SleepMsj(uint32_t);
void __wrap__Z7SleepMsj(uint32_t) {} // the pauses between settings take no time here

namespace {

template <typename T> Request Field(uint32_t field, T value)
{
    return Sent<T>(ParameterCode(field).value(), value);
}
using Sents = std::vector<Request>;
constexpr auto Word = Field<uint32_t>;
constexpr auto Byte = Field<uint8_t>;

Sents Joined(const std::vector<Sents>& parts)
{
    Sents all;
    for (const Sents& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Main stream: 1920x1080, 25 frames a second, H.265, an I-frame every 50; second one: 720x480.
void SetUpStreams(uint8_t mainEncoding = 3)
{
    Host().Set<uint8_t>({{1334, 2}, {1335, mainEncoding}, {1336, 2}, {1337, 3}, {1158, 24}, {1170, 0}});
    Host().Set<int32_t>({{1340, 25},
                         {1344, 20},
                         {1348, 15},
                         {1352, 4096 * 1024},
                         {1356, 1024 * 1024},
                         {1360, 512 * 1024},
                         {3436, 50},
                         {3448, 40},
                         {3460, 30}});
    Host().Set<uint16_t>({{3472, 1920}, {3474, 1080}, {3630, 720}, {3632, 480}, {3788, 352}, {3790, 288}});
    Host().Set<uint8_t>({{1364, 1}, {1365, 0}, {1366, 1}, {2440, 1}, {2441, 1}, {2448, 60}, {2449, 0}});
}

// Sends the request; returns whether it was answered, and what it made the camera do.
std::pair<bool, Sents> Set(const std::string& name, const std::string& object, const std::string& more = "")
{
    const TestConnection recorder(7);
    const std::string body = R"({"Name":")" + name + "\"" + more + R"(,")" + name + "\":" + object + "}";
    Host().Take();
    const Answer answer = ExchangeOn(recorder.fd(), ProcessSetConfigReq, MakeRequest(1040, body));
    EXPECT_EQ(answer.body, answer.bytes != 0 ? R"({"Name":"","Ret":100,"SessionID":"0x00000007"})" : "");
    return {answer.bytes != 0, Host().Take()};
}

// What every pass writes of the third stream, whose encoding follows the main stream's request.
Sents ThirdStream(std::optional<uint32_t> encoding = std::nullopt)
{
    Sents sent;
    if (encoding)
        sent.push_back(Word(4149, *encoding));
    return Joined({sent,
                   {Word(4174, 15), Word(4159, 1), Word(4156, 512 * 1024), Word(4153, 15), Word(4164, 352),
                    Word(4165, 288)}});
}

Sents Encode(const std::string& object)
{
    const auto [answered, sent] = Set("Simplify.Encode.[0]", object);
    EXPECT_TRUE(answered) << object;
    return sent;
}

std::string Video(const char* format, const char* members)
{
    return std::string(R"({")") + format + R"(":{"Video":{)" + members + "}}}";
}

TEST(EncodeSet, WritesWhatAStreamAsksFor)
{
    SetUpStreams();
    const std::tuple<const char*, Sents> members[] = {
        {R"("BitRateControl":"VBR")", {Word(4158, 1)}},
        {R"("BitRateControl":"CBR")", {Word(4158, 0)}},
        {R"("BitRateControl":"vbr","Compression":"H264")", {}},
        {R"("Compression":"H.265")", {}}, // the main stream's encoding: nothing to change
        {R"("Compression":"H.264")", {Word(4148, 2)}},
        {R"("Quality":4)", {Word(4194, 4)}},
        {R"("GOP":2)", {Word(4173, 40)}},
        {R"("GOP":8)", {Word(4173, 100)}}, // 5 seconds are the most
        {R"("GOP":0)", {Word(4173, 0)}},
        {R"("FPS":20)", {}},
        {R"("FPS":10)", {Word(4152, 10)}},
        {R"("FPS":10,"GOP":3)", {Word(4173, 60), Word(4152, 10), Word(4173, 30)}},
        {R"("FPS":60,"GOP":3)", {Word(4173, 60), Word(4152, 30), Word(4173, 90)}},
        {R"("FPS":0)", {Word(4152, 30)}},
        {R"("FPS":-1)", {Word(4152, 30)}}, // a rate that is carried, unlike a missing one
        {R"("GOP":-1,"FPS":1e300)", {Word(4173, 0U - 20), Word(4152, 30), Word(4173, 0U - 30)}},
        {R"("GOP":-1e300)", {Word(4173, 0x80000000 * 20U)}},
        {R"("Quality":-1,"BitRate":-1)", {Word(4194, 0U - 1), Word(4155, 0U - 1024)}},
        {R"("BitRate":1e300)", {Word(4155, 0x7FFFFFFFU * 1024)}},
        {R"("BitRate":1024)", {}},
        {R"("BitRate":2000)", {Word(4155, 2000 * 1024)}},
        {R"("Resolution":"D1")", {Word(4162, 720), Word(4163, 480)}},
        {R"("Resolution":"4K")", {}},
        {R"("Quality":"4","GOP":[],"FPS":{},"BitRate":null,"Resolution":1,"Compression":2,"BitRateControl":0)",
         {}},
    };
    for (const auto& [member, sent] : members) {
        EXPECT_EQ(Encode(Video("ExtraFormat", member)), Joined({sent, ThirdStream()})) << member;
    }
}

TEST(EncodeSet, LetsAllStreamsFollowTheMainOnesEncoding)
{
    const char both[] = R"({"ExtraFormat":{"Video":{"Compression":"H.264"}},)"
                        R"("MainFormat":{"Video":{"Compression":"H.264"}}})";
    SetUpStreams();
    const Sents pass = Joined({{Word(4148, 2), Word(4147, 2)}, ThirdStream(2)});
    EXPECT_EQ(Encode(both), Joined({pass, pass})) << "one pass for each member";
    EXPECT_EQ(Encode(R"({"ExtraFormat":{"Video":{"Compression":"H.265"}},)"
                     R"("MainFormat":{"Video":{"Compression":"H.264"}}})"),
              Joined({{Word(4147, 2)}, ThirdStream(2), {Word(4148, 3), Word(4147, 2)}, ThirdStream(2)}))
        << "a change in one pass is one for all streams that follow";
    SetUpStreams(/* mainEncoding= */ 4); // MJPEG is left for H.264
    const Sents mjpegPass = Joined({{Word(4148, 2), Word(4147, 2)}, ThirdStream(2)});
    EXPECT_EQ(Encode(both), Joined({mjpegPass, mjpegPass}));
    SetUpStreams();
    EXPECT_EQ(Encode(R"({"a":1,"b":2,"c":3})"), Joined({ThirdStream(), ThirdStream(), ThirdStream()}));
    for (const char* const none : {"{}", "[]", R"([{"MainFormat":{}}])", "7", "null", R"("text")"})
        EXPECT_EQ(Encode(none), Sents{}) << none;
}

// The main stream's own settings come before the sound, and both before the third stream.
TEST(EncodeSet, SwitchesTheSoundWithTheMainStream)
{
    const auto property = [](uint8_t isOn) {
        return Sents{Byte(4253, isOn), Byte(4259, 80), Byte(4258, 80), Byte(4260, 0), Byte(4261, 0)};
    };
    const Sents config = {Byte(4254, 1), Word(4255, 8000)};
    SetUpStreams();
    EXPECT_EQ(Encode(R"({"MainFormat":{"AudioEnable":true,"Audio":{},"Video":{"Resolution":"720P","FPS":15,)"
                     R"("BitRate":2048,"GOP":3,"Quality":2,"Compression":"H.264","BitRateControl":"CBR"}}})"),
              Joined({{Word(4157, 0), Word(4147, 2), Word(4193, 2), Word(4172, 75), Word(4151, 15)},
                      {Word(4172, 45), Word(4154, 2048 * 1024), Word(4160, 1280), Word(4161, 720)},
                      property(1),
                      config,
                      ThirdStream(2)}));
    EXPECT_EQ(Encode(R"({"MainFormat":{"AudioEnable":false,"Audio":{}}})"),
              Joined({property(0), ThirdStream()}));
    EXPECT_EQ(Encode(R"({"MainFormat":{"AudioEnable":true}})"), ThirdStream()) << "no \"Audio\", no change";
    Host().Set<uint8_t>({{2449, 30}});
    EXPECT_EQ(Encode(R"({"MainFormat":{"AudioEnable":true,"Audio":0}})").at(2), Byte(4258, 60))
        << "volumes that are set stay";
}

// What cannot be done for a stream is passed over; the rest is written as ever.
TEST(EncodeSet, LogsEachSettingInItsPlace)
{
    SetUpStreams();
    Host().Set<int32_t>({{1344, 0}});     // no rate: I-frames any distance apart are too far
    Host().Set<uint16_t>({{3788, 1520}}); // a size without a name
    const std::string log = ErrorOutputOf([] {
        const Sents third = {Word(4174, 15), Word(4159, 1), Word(4156, 512 * 1024), Word(4153, 15)};
        EXPECT_EQ(Encode(Video("ExtraFormat", R"("GOP":0,"BitRateControl":"VBR")")),
                  Joined({{Word(4158, 1)}, third}));
        EXPECT_EQ(Encode(Video("ExtraFormat", R"("Resolution":"4K","BitRate":9,"GOP":3,"Quality":7)")),
                  Joined({{Word(4194, 7), Word(4155, 9 * 1024)}, third}));
    });
    size_t place = log.rfind(": Name = Simplify.Encode.[0]\n");
    for (const char* const line :
         {": \n", "Common_GetAudioProperty ", " index 1 Quality 7\n",
          "CONFIGMODIFY ProtocolAccess.c ProcessSetConfigReq ", "index = 1 value = 9\n", " NOT Support \n",
          "index = 2 value = 1\n", "index = 2 value = 512\n", "index = 2 value = 15:",
          "VideoConfig[2].iVideoWidth 1520 VideoConfig[2].iVideoHeight 288\n", "index = 2 Resolution = \n"}) {
        place = log.find(line, place);
        ASSERT_NE(place, std::string::npos) << line << log;
    }
}

TEST(EncodeSet, IsDroppedOnceAfterAMonitorStart)
{
    SetUpStreams();
    SetMonitorStartFlag();
    EXPECT_EQ(Set("Simplify.Encode.[0]", R"({"a":1})"), std::make_pair(false, Sents{}));
    EXPECT_EQ(Set("Simplify.Encode.[0]", R"({"a":1})"), std::make_pair(true, ThirdStream()));
}

TEST(SetConfig, SendsWhatAnObjectCarries)
{
    SetUpStreams();
    const std::tuple<const char*, const char*, Sents> cases[] = {
        {"System.TimeZone", R"({"timeMin":-480})", {Byte(4402, 0), Byte(4300, 40)}},
        {"System.TimeZone", R"({"timeMin":330})", {Byte(4402, 0), Byte(4300, 13)}},
        {"System.TimeZone", R"({"timeMin":720})", {Byte(4402, 0), Byte(4300, 0)}},
        {"System.TimeZone", R"({"timeMin":345})", {Byte(4402, 0), Byte(4300, 40)}},
        {"System.TimeZone", R"({})", {Byte(4402, 0), Byte(4300, 40)}},
        {"General.General", R"({"MachineName":"x"})", {}},
        {"General.Location", R"({"WorkDay":1})", {}},
        {"General.AutoMaintain", R"({"AutoRebootHour":3})", {}},
        {"System.ExUserMap", R"({"User":[]})", {}},
        {"OEMcfg.Correspondent", R"({"Port":1})", {}},
        {"NetWork.NetNTP", R"({"Enable":true})", {}},
        {"NetWork.NetDHCP", R"([])", {}},
        {"NetWork.NetCommon", R"({"HttpPort":80})", {}}, // without a MAC
    };
    for (const auto& [name, object, sent] : cases)
        EXPECT_EQ(Set(name, object), std::make_pair(true, sent)) << name << object;
}

// In a namespace with the loopback alone "wlan0" is the active interface, which has no MAC.
TEST(SetConfig, ChangesTheNetworkOfThisCameraAlone)
{
    const std::string mac = R"(,"MAC":"00:00:00:00:00:00")";
    Host().Set<uint8_t>({{1206, 1}});
    const Sents port = {Byte(4389, 1), Field<uint16_t>(4390, 65535)};
    EXPECT_EQ(Set("NetWork.NetCommon", R"({"HttpPort":8080})", mac),
              std::make_pair(true, Joined({{Field<uint16_t>(4101, 8080)}, port})));
    for (const char* const refused : {R"({"HttpPort":1024,"TCPPort":1})", R"({"HttpPort":65535})", "{}"})
        EXPECT_EQ(Set("NetWork.NetCommon", refused, mac), std::make_pair(false, Sents{})) << refused;
    const Sents all = Joined({{Field<uint16_t>(4101, 80), Byte(4389, 1), Field<uint16_t>(4390, 9001)},
                              {Word(4360, 0x010200C0), Word(4358, 0x0A0200C0)},
                              {{*ParameterCode(4145), {'c', 'a', 'm'}}, Word(4359, 0x00FFFFFF)}});
    EXPECT_EQ(Set("NetWork.NetCommon",
                  R"({"Submask":"0x00FFFFFF","HostName":"cam","HostIP":"0x0A0200C0","GateWay":"0x010200C0",)"
                  R"("TCPPort":9001,"HttpPort":80})",
                  mac),
              std::make_pair(true, all));
    EXPECT_EQ(
        Set("NetWork.NetCommon", R"({"HttpPort":80,"TCPPort":9,"HostName":"a b","HostIP":5})", mac),
        std::make_pair(true, Sents{Field<uint16_t>(4101, 80), Byte(4389, 1), Field<uint16_t>(4390, 9)}));
    EXPECT_EQ(Set("NetWork.NetDHCP", R"([{"Interface":"wlan0","Enable":true}])"),
              std::make_pair(true, Sents{Word(4105, 1)}));
    EXPECT_EQ(Set("NetWork.NetDHCP", R"([{"Interface":"eth0","Enable":true}])"),
              std::make_pair(false, Sents{}));
}

TEST(SetConfig, KeepsWhatAnObjectDoesNotCarry)
{
    Host().Set<uint8_t>({{2104, 1}, {2106, 7}});
    for (uint32_t row = 0; row < 32; ++row)
        Host().Set<uint32_t>({{2116 + 4 * row, row}});
    const auto motion = [](const char* object) {
        const auto [answered, sent] = Set("Detect.MotionDetect.[0]", object);
        EXPECT_TRUE(answered);
        std::vector<uint8_t> values; // enable, sensitivity, the first three rows' lowest bytes
        for (const uint32_t field : {4212U, 4214U})
            for (const Request& request : sent)
                if (request.code == ParameterCode(field))
                    values.push_back(request.value.at(0));
        for (const Request& request : sent)
            if (request.code == ParameterCode(4217))
                for (const size_t row : {0U, 1U, 2U})
                    values.push_back(request.value.at(4 * row));
        return values;
    };
    using Values = std::vector<uint8_t>;
    EXPECT_EQ(motion("{}"), (Values{1, 7, 0, 1, 2}));
    EXPECT_EQ(motion(R"({"Level":4,"Region":["0xAA",7]})"), (Values{1, 6, 0xAA, 0, 2}));
    EXPECT_EQ(motion(R"({"Level":6,"Enable":false})"), (Values{0, 10, 0, 1, 2}));
    EXPECT_EQ(motion(R"({"Level":1,"Region":["none"]})"), (Values{1, 1, 0, 1, 2}));
    EXPECT_EQ(motion(R"({"Level":0,"Enable":true})"), (Values{0, 0, 0, 1, 2})) << "level 0 switches it off";
}

} // namespace
