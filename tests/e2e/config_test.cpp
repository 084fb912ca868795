// Everything that a recorder reads and changes by name, over the wire: the real server on the settings of a
// real parameter host.

#include <sys/shm.h>

#include <filesystem>
#include <fstream>

#include "hosts/parameter_host.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/e2e/harness/distinct_settings.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSilence[] = "";
constexpr char kDone[] = R"({"Name":"","Ret":100,"SessionID":"SESSION"})";
constexpr char kUnknownObject[] = R"({"Name":"","Ret":607,"SessionID":"SESSION"})";
constexpr char kUnknownAbility[] = R"({"Name":"","Ret":101,"SessionID":"SESSION"})";

std::string Named(const std::string& name)
{
    return R"({"Name":")" + name + "\"}";
}

std::string Replace(std::string text, std::string_view what, std::string_view with)
{
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

class ConfiguredCamera : public testing::Test {
  protected:
    ConfiguredCamera()
    {
        WriteDistinctSettings(settings.get());
        parameters.Start();
        server.emplace();
        server->WaitForLog("ListenSocketThread");
        recorder.emplace();
        recorder->Login();
    }
    ~ConfiguredCamera() override
    {
        server->ExpectHealthy();
        server.reset(); // before the host that it waits for
        parameters.Stop();
        parameters.Release(true);
    }

    // Expects the reply with this text for SESSION, or none.
    void ExpectAnswer(uint16_t id, const std::string& body, std::string_view expected)
    {
        SCOPED_TRACE(body.substr(0, 300));
        if (expected == kSilence)
            return ExpectSilence(id, body);
        char session[16];
        snprintf(session, sizeof session, "0x%08x", recorder->session);
        EXPECT_EQ(recorder->Ask(id, body).body, Replace(std::string(expected), "SESSION", session));
    }
    // The server takes one read for one message, so the next request waits until this one was read; if
    // the answer to that comes first, there was none to this.
    void ExpectSilence(uint16_t id, const std::string& body)
    {
        const std::string wasRead = " cmd = " + std::to_string(id) + " data len = ";
        const int before = server->CountLog(wasRead);
        recorder->Send(id, body);
        server->WaitForLog(wasRead, before + 1);
        recorder->Ask(kKeepaliveReq);
    }
    void ExpectPart(uint16_t id, const std::string& name, const std::string& part)
    {
        const std::string body = recorder->Ask(id, Named(name)).body;
        EXPECT_NE(body.find(part), std::string::npos) << body << "\nlacks " << part;
    }
    [[nodiscard]] std::string Settings() const
    {
        return {reinterpret_cast<const char*>(settings.get()), kSysConfigBytes};
    }

    ParameterHost parameters{"", [] {}};
    ShmAttachment settings{shmget(kSysConfigKey, 0, 0)};
    FakeMediaHost media;
    std::optional<ServerProcess> server;
    std::optional<ProtocolClient> recorder;
};

using Configuration = ConfiguredCamera;

TEST_F(Configuration, EveryReplyIsTheOneThatIsWrittenDown)
{
    constexpr struct {
        const char* directory;
        uint16_t id;
        int names;
    } kRows[] = {
        {"get", kGetConfigReq, 26}, {"ability", kGetAbilityReq, 14}, {"information", kSysinfoReq, 2}};
    const auto read = [](const fs::path& path) {
        std::string line;
        std::getline(std::ifstream(path), line);
        return line;
    };
    const fs::path replies = VELMORA_SEQUENCES "/replies";
    for (const auto& row : kRows) {
        int names = 0;
        for (const fs::path& file : fs::directory_iterator(replies / row.directory)) {
            ExpectAnswer(row.id, Named(file.stem()), read(file));
            names++;
        }
        EXPECT_EQ(names, row.names);
    }
    ProtocolClient stranger; // a search comes without a session
    EXPECT_EQ(stranger.Ask(kDevSearchReq, "is not read").body, read(replies / "search.json"));
}

constexpr struct {
    const char* what;
    Setting settings[2];
    uint16_t id;
    const char* name;
    const char* part;
} kVariations[] = {
    {"1080P",
     {{block::kWidth(0), 2, 1920}, {block::kHeight(0), 2, 1080}},
     kGetConfigReq,
     "AVEnc.Encode",
     R"("GOP":3,"Resolution":"1080P","Quality":2})"},
    {"a size without a name",
     {{block::kHeight(0), 2, 1600}},
     kGetConfigReq,
     "Simplify.Encode",
     R"("GOP":3,"Resolution":"","Quality":5})"},
    {"smart encoding",
     {{block::kStreamByte18, 1, 1}},
     kGetConfigReq,
     "Simplify.Encode",
     R"("FPS":12,"GOP":10,"Quality":3)"},
    {"a smart main stream",
     {{block::kStreamByte18, 1, 1}},
     kGetConfigReq,
     "Simplify.Encode",
     R"("FPS":20,"GOP":10,"Resolution")"},
    {"MJPEG",
     {{block::kEncoding(0), 1, 4}},
     kGetConfigReq,
     "AVEnc.Encode",
     R"("Video":{"BitRate":6144,"BitRateControl":"VBR","FPS":15,"GOP":2,)"},
    {"an unknown rate control",
     {{block::kBitRateControl(1), 1, 2}},
     kGetConfigReq,
     "AVEnc.Encode",
     R"("Video":{"BitRate":1536,"Compression":"H.264","FPS":12,)"},
    {"no frames", {{block::kFrameRate(0), 4, 0}}, kGetConfigReq, "Simplify.Encode", R"("FPS":0,"GOP":1,)"},
    {"an odd quality",
     {{block::kStreamByte7(0), 1, 7}},
     kGetConfigReq,
     "Simplify.Encode",
     R"("Quality":3}})"},
    {"no sound",
     {{block::kAudioEnable, 1, 0}},
     kGetConfigReq,
     "Simplify.Encode",
     R"({"ExtraFormat":{"Audio":{"BitRate":0,"MaxVolume":0,"SampleRate":0},"AudioEnable":false,)"},
    {"another sound",
     {{block::kAudioEncoding, 1, 2}},
     kGetAbilityReq,
     "EncodeCapability",
     R"("Enable":true,"HaveAudio":false,"ResolutionMask":"0x00144800")"},
    {"the finest motion level",
     {{block::kMotionSensitivity, 1, 0}},
     kGetConfigReq,
     "Detect.MotionDetect.[0]",
     R"("Level":3,)"},
    {"an unknown time zone",
     {{block::kTimeZone, 1, 49}},
     kGetConfigReq,
     "System.TimeZone",
     R"({"FirstUserTimeZone":0,"timeMin":-480})"},
};

TEST_F(Configuration, RepliesFollowTheSettings)
{
    for (const auto& row : kVariations) {
        SCOPED_TRACE(row.what);
        WriteDistinctSettings(settings.get());
        for (const Setting& setting : row.settings)
            Store(settings.get(), setting);
        ExpectPart(row.id, row.name, row.part);
    }
    // The maker's list of sizes: upper-case digits for the main stream, lower-case ones for the second.
    ASSERT_NE(getenv("SANDBOX"), nullptr) << "writes /var/cfg";
    WriteDistinctSettings(settings.get());
    std::ofstream("/var/cfg/CustomTools.cfg")
        << "[CustomToolCfg]\nCustomComboName=H264:1920x1200;@H264:1920x1200,H264:720x480;"
           "H264:1600x1200,H264:352x288;H264:1600x1200,H264:352x576;@\n";
    constexpr char kFirst[] = R"({"CompressionMask":"0x00000080","Enable":true,"HaveAudio":true,)";
    ExpectPart(kGetAbilityReq, "EncodeCapability",
               kFirst + std::string(R"("ResolutionMask":"0x0000A000","StreamType":"MainStream"},)") + kFirst +
                   R"("ResolutionMask":"0x0000000b","StreamType":"ExtraStream2"})");
}

// Nobody who means well sends these. Each has one answer for a body that is no JSON and one for JSON
// without a known name.
TEST_F(Configuration, BodiesWithoutAKnownNameHaveTheirAnswer)
{
    constexpr struct {
        uint16_t id;
        const char* notJson;
        const char* unknown;
    } kIds[] = {{kSysinfoReq, kSilence, kSilence},
                {kSetConfigReq, kSilence, kSilence},
                {kGetConfigReq, kSilence, kUnknownObject},
                {kGetAbilityReq, kUnknownAbility, kUnknownAbility},
                {kDevIpSettingReq, kDone, kDone}};
    const std::string deep(10000, '['), object = R"({"Name":)", text(10180, 'N');
    const std::string notJson[] = {"", "no JSON", "{\"Name\":\"General.General\"", deep, "\xFF\xFE\xC0\x80"};
    const std::string unknown[] = {"{}",
                                   "[]",
                                   "\"General.General\"",
                                   object + "null}",
                                   object + "1e999}",
                                   object + "[\"General.General\"]}",
                                   Named(text),
                                   Named("\xFF\xC0\x80"),
                                   Named("%s%n"),
                                   Named("simplify.encode"),
                                   Named("Simplify"),
                                   Named("Camera.Param.[1]"),
                                   Named("Camera.Param"),
                                   Named("General.General "),
                                   Named("AVEnc.Encode.[0]"),
                                   object + "{\"a\":" + deep.substr(0, 900) + std::string(900, ']') + "}}",
                                   R"({"name":"","Name":"MultiVstd"})"};
    const std::string before = Settings();
    for (const auto& id : kIds) {
        for (const std::string& body : notJson)
            ExpectAnswer(id.id, body, id.notJson);
        for (const std::string& body : unknown)
            ExpectAnswer(id.id, body, id.unknown);
    }
    ExpectAnswer(kSetConfigReq, R"({"Name":"Simplify.Encode","Simplify.Encode":{}})", kSilence);
    ExpectAnswer(kSetConfigReq, R"({"Name":"AVEnc.Encode","AVEnc.Encode":{}})", kSilence);
    ExpectAnswer(kGetConfigReq, R"({"nAmE":"AVEnc.VideoWidget"})",
                 R"({"AVEnc.VideoWidget":[],"Name":"AVEnc.VideoWidget","Ret":100,"SessionID":"SESSION"})");
    EXPECT_EQ(Settings(), before);
}

constexpr struct {
    const char* request;
    const char* name; // to be read afterwards
    const char* parts[3];
} kChanges[] = {
    {R"({"Name":"Simplify.Encode.[0]","Simplify.Encode.[0]":{"ExtraFormat":{"Video":{"BitRate":768,)"
     R"("BitRateControl":"VBR","Compression":"H.265","FPS":10,"GOP":4,"Resolution":"D1"}},"MainFormat":{)"
     R"("AudioEnable":false,"Audio":{},"Video":{"BitRate":2048,"BitRateControl":"CBR",)"
     R"("Compression":"H.264","FPS":15,"GOP":8,"Resolution":"720P"}}}})",
     "Simplify.Encode",
     {R"({"ExtraFormat":{"Audio":{"BitRate":0,"MaxVolume":0,"SampleRate":0},"AudioEnable":false,)",
      R"({"BitRate":768,"BitRateControl":"VBR","Compression":"H.265","FPS":10,"GOP":4,)",
      R"({"BitRate":2048,"BitRateControl":"CBR","Compression":"H.264","FPS":15,"GOP":5,"Resolution":"720P",)"}},
    {R"({"Name":"Detect.MotionDetect.[0]","Detect.MotionDetect.[0]":{"Enable":true,"Level":4,)"
     R"("Region":["0x000000ff",7,"FFc00000"]}})",
     "Detect.MotionDetect.[0]",
     {R"({"Detect.MotionDetect.[0]":{"Enable":true,)", R"("Level":4,"Region":["0x000000ff","0x00000000",)",
      R"("0xffc00000","0xdaa66d13",)"}},
    {R"({"Name":"Detect.MotionDetect.[0]","Detect.MotionDetect.[0]":{"Enable":true,"Level":0}})",
     "Detect.MotionDetect.[0]",
     {R"({"Detect.MotionDetect.[0]":{"Enable":false,)", R"("Level":3,)", R"("0xdaa66d13",)"}},
    {R"({"Name":"AVEnc.VideoColor.[0]","AVEnc.VideoColor.[0]":[{"VideoColorParam":{"Brightness":50,)"
     R"("Contrast":100,"Saturation":0,"Hue":99}},{"VideoColorParam":{"Brightness":1}}]})",
     "AVEnc.VideoColor.[0]",
     {R"("Brightness":50,"Contrast":100,"Gain":0,"Hue":25,"Saturation":0,"Whitebalance":7}},{)"}},
    {R"({"Name":"System.TimeZone","System.TimeZone":{"timeMin":-480}})",
     "System.TimeZone",
     {R"("timeMin":-480})"}},
    {R"({"Name":"System.TimeZone","System.TimeZone":{"timeMin":720}})",
     "System.TimeZone",
     {R"("timeMin":720})"}},
    {R"({"Name":"NetWork.NetCommon","MAC":"02:00:5E:A1:B2:C3","NetWork.NetCommon":{"HttpPort":80,)"
     R"("TCPPort":65535,"HostName":"cam-01"}})",
     "NetWork.NetCommon",
     {R"("HostName":"cam-01","HttpPort":80,)", R"("SSLPort":65535,)", R"("TCPPort":65535,)"}},
};

TEST_F(Configuration, WhatIsSetIsReadBack)
{
    for (const auto& row : kChanges) {
        ExpectAnswer(kSetConfigReq, row.request, kDone);
        for (const char* part : row.parts)
            if (part != nullptr)
                ExpectPart(kGetConfigReq, row.name, part);
    }
    EXPECT_EQ(LoadLe<uint16_t>(settings.get() + block::kWidth(1)), 720);
    EXPECT_EQ(LoadLe<int32_t>(settings.get() + block::kIFrameInterval(1)), 40);
    EXPECT_EQ(settings.get()[block::kEncoding(2)], 2) << "the third stream goes with the main stream";
    EXPECT_EQ(settings.get()[kBrightness], 128);
}

// Objects that can be set, with % for each value, and where the block may differ once such a set is done.
constexpr struct {
    const char* name;
    const char* object;
    const char* answer;
    struct {
        size_t first, bytes;
    } carried[5];
    Setting afterNulls[3]; // what it holds when null was sent everywhere
} kSettable[] = {
    {"Simplify.Encode.[0]",
     R"({"ExtraFormat":{"Video":{"BitRate":%,"BitRateControl":%,"Compression":%,"FPS":%,"GOP":%,"Quality":%,)"
     R"("Resolution":%}},"MainFormat":{"Audio":%,"AudioEnable":%,"Video":{"BitRate":%,"BitRateControl":%,)"
     R"("Compression":%,"FPS":%,"GOP":%,"Quality":%,"Resolution":%}}})",
     kDone,
     {{block::kEncoding(0), 41}, // to the end of what is stored for each stream there
      {block::kIFrameInterval(0), 36},
      {block::kAudioEnable, 12}},
     {{block::kAudioEnable, 1, 0}}},
    {"Detect.MotionDetect.[0]",
     R"({"Enable":%,"Level":%,"Region":[%,%],"EventHandler":%})",
     kDone,
     {{block::kMotionEnable, 3}, {block::kMotionGrid, 8}},
     {{block::kMotionEnable, 1, 0}, {block::kMotionGrid + 4, 4, 0}}},
    {"AVEnc.VideoColor.[0]",
     R"([{"Enable":%,"VideoColorParam":{"Brightness":%,"Contrast":%,"Saturation":%,"Hue":%}},%])",
     kDone,
     {{kBrightness, 3}},
     {}},
    {"System.TimeZone", R"({"timeMin":%})", kDone, {{block::kTimeZone, 2}}, {{block::kTimeZone, 1, 40}}},
    {"NetWork.NetDHCP", R"([{"Enable":%,"Interface":%}])", kSilence, {}, {}},
    {"NetWork.NetDHCP", R"([{"Enable":%,"Interface":"eth0"}])", kDone, {}, {}},
    {"NetWork.NetCommon", R"({"HttpPort":%,"TCPPort":%,"HostName":%,"HostIP":%})", kSilence, {}, {}},
    {"NetWork.NetCommon",
     R"({"HttpPort":8081,"TCPPort":%,"GateWay":%,"HostName":%,"MaxBps":%})",
     kDone,
     {{block::kGateway, 4}, {block::kVelmoraPort, 3}, {block::kDeviceName, block::kIdentityBytes}},
     {{block::kVelmoraPort, 2, 65535}}},
    {"General.AutoMaintain", "%", kDone, {}, {}},
    {"System.ExUserMap", R"({"User":[%],"UserNum":%})", kDone, {}, {}},
    {"OEMcfg.Correspondent", R"({"Port":%,"HardwareId":%,"FirmwareVersion":%})", kDone, {}, {}},
    {"General.General", R"({"AutoLogout":%,"MachineName":%,"VideoOutPut":%})", kDone, {}, {}},
    {"General.Location", R"({"DSTEnd":{"Day":%},"DSTStart":%,"WorkDay":%,"Language":%})", kDone, {}, {}},
    {"NetWork.NetNTP", R"({"Enable":%,"Server":{"Address":%,"Port":%},"TimeZone":%})", kDone, {}, {}},
};

TEST_F(Configuration, HostileValuesChangeNothingBeyondTheirPlace)
{
    const std::string text(400, '\xFE');
    const std::string values[] = {"null",
                                  "[]",
                                  "{}",
                                  "true",
                                  "-1",
                                  "1e300",
                                  "-99999999999",
                                  "0.4",
                                  "\"\"",
                                  "\"%s%n\xC0\x80\"",
                                  "\"" + text + "\"",
                                  std::string(300, '[') + std::string(300, ']')};
    for (const auto& row : kSettable) {
        for (const std::string& value : values) {
            SCOPED_TRACE(row.name + (" with " + value.substr(0, 20)));
            WriteDistinctSettings(settings.get());
            std::string expected = Settings();
            ExpectAnswer(kSetConfigReq,
                         R"({"MAC":"02:00:5E:A1:B2:C3","Name":")" + std::string(row.name) + "\",\"" +
                             row.name + "\":" + Replace(row.object, "%", value) + "}",
                         row.answer);
            const std::string changed = Settings();
            if (value == "null")
                for (const Setting& setting : row.afterNulls)
                    Store(reinterpret_cast<uint8_t*>(expected.data()), setting);
            else
                for (const auto& [first, bytes] : row.carried)
                    expected.replace(first, bytes, changed, first, bytes);
            const auto differs = std::mismatch(changed.begin(), changed.end(), expected.begin()).first;
            EXPECT_EQ(static_cast<size_t>(differs - changed.begin()), kSysConfigBytes)
                << "the byte that differs";
        }
    }
    EXPECT_EQ(recorder->Login(), 2U); // nothing has hurt it
}

} // namespace
