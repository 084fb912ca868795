// A recorder's day: it configures the camera, watches both streams, operates it, takes an alarm, goes without
// a word and comes back. The server must be after many days what it was after the first.

#include "camera/alarm_block.h"
#include "tests/e2e/harness/answering_param_host.h"
#include "tests/e2e/harness/camera_test.h"

namespace {

constexpr const char* kConfiguration[] = {
    "AVEnc.Encode",      "General.General",          "NetWork.NetDHCP",         "NetWork.NetDNS",
    "Record.[0]",        "OEMcfg.Correspondent",     "NetWork.NetCommon",       "Simplify.Encode",
    "Camera.Param.[0]",  "AVEnc.VideoColor.[0]",     "Detect.MotionDetect.[0]", "System.TimeZone",
    "AVEnc.VideoWidget", "AVEnc.CombineEncodeParam",
};
constexpr const char* kAbilities[] = {"SystemFunction", "EncodeCapability", "MotionArea", "TalkAudioFormat"};

class Day : public RunningCamera {
  protected:
    void ExpectOk(ProtocolClient& recorder, uint16_t id, const std::string& body)
    {
        EXPECT_NE(recorder.Ask(id, body).body.find(R"("Ret":100)"), std::string::npos) << id << body;
    }
    void Configure(ProtocolClient& recorder)
    {
        for (const char* const name : kConfiguration)
            ExpectOk(recorder, kGetConfigReq, std::string(R"({"Name":")") + name + "\"}");
        for (const char* const name : kAbilities)
            ExpectOk(recorder, kGetAbilityReq, std::string(R"({"Name":")") + name + "\"}");
        ExpectOk(recorder, kSysinfoReq, R"({"Name":"SystemInfo"})");
        const std::string encode = R"({"Name":"Simplify.Encode.[0]","Simplify.Encode.[0]":{"MainFormat":)"
                                   R"({"Video":{"Compression":"H.264","FPS":12,"Resolution":"720P"}}}})";
        recorder.Send(kSetConfigReq, encode); // dropped: live view has been started before
        server->WaitForLog(": Name = Simplify.Encode.[0]\n", ++encodeSets_);
        ExpectOk(recorder, kSetConfigReq, encode);
        ++encodeSets_;
        EXPECT_NE(host_.Take().find("67:02000000 "), std::string::npos) << "the main stream's encoding";
    }
    void Operate(ProtocolClient& recorder)
    {
        for (const char* const preset : {"0", "-1"}) // pressed, let go
            ExpectOk(recorder, kPtzControlReq,
                     std::string(R"({"Name":"OPPTZControl","OPPTZControl":{"Command":"DirectionUp",)"
                                 R"("Parameter":{"Step":3,"Preset":)") +
                         preset + "}}}");
        ExpectOk(recorder, kTimeQueryReq, "");
        ExpectOk(recorder, kKeepaliveReq, "");
        recorder.Send(kForceIFrameReq);
        recorder.ReceiveReply(kForceIFrameReply);
        EXPECT_EQ(host_.Take(), "295:03 290:0103000000 290:0100000000 ");
    }
    void TakeAlarm(ProtocolClient& recorder)
    {
        ExpectOk(recorder, kUserUsersReq, ""); // subscribes
        for (const auto& [status, text] : {std::pair{1U, "Start"}, {0U, "Stop"}}) {
            StoreLe(alarm_.get() + 2 * sizeof(AlarmEntry), status);
            Message message{};
            while (message.body.find(text) == std::string::npos)
                message = recorder.Receive();
            EXPECT_EQ(message.header.usMessageId, kAlarmInfo);
        }
    }
    void LiveThroughADay()
    {
        Watcher watcher("Main");
        MediaReader second(watcher.command.session, "Extra");
        watcher.Monitor("Start"); // for the second stream too
        Deliver(watcher.media);
        Deliver(second, MakeGop(), kSecondStream);
        Configure(watcher.command);
        Operate(watcher.command);
        Deliver(watcher.media);
        TakeAlarm(watcher.command);
    } // all connections end at once

    struct Footprint {
        size_t descriptors, threads;
        bool operator==(const Footprint&) const = default;
    };
    [[nodiscard]] Footprint TakeFootprint() const
    {
        return {server->CountEntries("fd"), server->CountEntries("task")};
    }

    AnsweringParamHost host_;
    ShmAttachment alarm_{IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode)};
    int encodeSets_ = 0;
};

TEST_F(Day, LeavesNothingBehind)
{
    media->WaitForQueries(); // by now all of the server's threads run
    const Footprint morning = TakeFootprint();
    LiveThroughADay();
    WaitUntil("the first day to end", [&] { return TakeFootprint() == morning; });
    const size_t memoryKb = server->MemoryKb();
    for (int day = 0; day < 4; day++) {
        LiveThroughADay();
        WaitUntil("the day to end", [&] { return TakeFootprint() == morning; });
    }
    // A sanitizer keeps what is freed; everything else is used again.
    const size_t growthKb = Slowness() > 1 ? 64 * 1024 : 64;
    EXPECT_LE(server->MemoryKb(), memoryKb + growthKb);
}

} // namespace
