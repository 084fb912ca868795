#include "bench/soak_recorder.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "bench/soak_garbage.h"
#include "common/clock.h"
#include "recorder/config_change.h"
#include "recorder/discovery.h"
#include "recorder/failure.h"
#include "recorder/ptz.h"

namespace {

constexpr double kMostAnswerMs = 10'000; // of an undisturbed camera, however busy the machine
constexpr milliseconds kTimeout{60'000};
constexpr double kSearchMs = 30'000; // with a fault in it that holds the camera up

// What of a camera's answer shows that it is one to the request of a name.
struct Inquiry {
    uint16_t id;
    const char* name; // of the request
};
constexpr Inquiry kInquiries[] = {
    {kSysinfoReq, "SystemInfo"},  {kSysinfoReq, "StorageInfo"},       {kTimeQueryReq, "OPTimeQuery"},
    {kLogQueryReq, "OPLogQuery"}, {kGetChanTitleReq, "ChannelTitle"}, {kUserUsersReq, ""},
    {kUserGroupReq, ""},
};
constexpr const char* kAbilities[] = {
    "MultiLanguage",  "BlindCapability",  "SupportExtRecord", "PTZcontrol",
    "SystemFunction", "EncodeCapability", "AHDEncodeL",       "AVEnc.EncodeStaticParam",
    "EncStaticParam", "MotionArea",       "MotionArea.[0]",   "TalkAudioFormat",
    "MultiVstd",      "Camera",
};
// Settings that nothing else of the run depends on. Each recorder has its own, to see what it has set.
struct Setting {
    const char* name;
    const char* begin; // of the object, up to the number
    const char* end;
    int least, most, step;
};
constexpr Setting kSettings[kSoakRecorders][2] = {
    {{"AVEnc.VideoColor.[0]", R"({"VideoColorParam":{"Brightness":)", "}}", 0, 100, 50},
     {"AVEnc.VideoColor.[0]", R"({"VideoColorParam":{"Contrast":)", "}}", 0, 100, 50}},
    {{"Detect.MotionDetect.[0]", R"({"Level":)", "}", 3, 5, 1},
     {"System.TimeZone", R"({"timeMin":)", "}", -720, 720, 60}},
};
constexpr const char* kPresetCommands[] = {"SetPreset", "GotoPreset", "ClearPreset"};
constexpr uint32_t kPresets = 8;

// Requests of a conversation that this camera does not hold: it answers none of them.
constexpr uint16_t kTalkReqs[] = {1430, 1434};

std::string NamedBody(const char* name)
{
    return std::string(R"({"Name":")") + name + R"(","SessionID":"0x00000000"})";
}

} // namespace

template <typename Action> auto SoakRecorder::Timed(const char* what, const Action& action)
{
    const bool disturbed = scene_.disturbed;
    const int64_t disturbedBefore = scene_.disturbedMs;
    const TimePoint begin = Clock::now();
    const auto note = [&] {
        const double ms = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
        const auto disturbedMs = static_cast<double>(scene_.disturbedMs - disturbedBefore);
        const bool isOver = !scene_.disturbed; // a fault is timed when it is over
        verdict_.CountAnswer(ms, disturbed || !isOver || disturbedMs > 0);
        if (isOver && ms > kMostAnswerMs * scene_.slowness + disturbedMs)
            verdict_.Fail("%s: %s took %.0f ms", name_.c_str(), what, ms);
    };
    if constexpr (std::is_void_v<decltype(action())>) {
        action();
        note();
    } else {
        auto result = action();
        note();
        return result;
    }
}

// How each operation is done.
struct SoakOperations {
    using Function = void (*)(SoakRecorder&, uint32_t value);

    static void LogIn(SoakRecorder& recorder, uint32_t)
    {
        recorder.LogOut();
        recorder.EnsureSession();
    }
    static void Watch(SoakRecorder& recorder, uint32_t stream)
    {
        static constexpr const char* kOptions[kSoakStreams] = {"main", "extra"};
        const Stream& wanted = FindStream(kOptions[stream]);
        if (!recorder.watch_.Has(stream))
            recorder.watch_.Add(stream,
                                recorder.Timed("claim", [&] { return recorder.session_->Claim(wanted); }));
        recorder.Timed("start", [&] { recorder.session_->Monitor("Start", wanted); });
    }
    static void WatchMain(SoakRecorder& recorder, uint32_t) { Watch(recorder, 0); }
    static void WatchSub(SoakRecorder& recorder, uint32_t) { Watch(recorder, 1); }
    static void PauseFlow(SoakRecorder& recorder, uint32_t value)
    {
        if (recorder.watch_.Connections() == 0)
            return;
        const Stream& stream = Streams().front();
        recorder.watch_.AllowGap();
        recorder.Timed("stop", [&] { recorder.session_->Monitor("Stop", stream); });
        recorder.Stay(milliseconds(value % 300));
        recorder.Timed("start", [&] { recorder.session_->Monitor("Start", stream); });
    }
    static void StopWatching(SoakRecorder& recorder, uint32_t)
    {
        recorder.Timed("stop", [&] { recorder.session_->Monitor("Stop", Streams().front()); });
        recorder.watch_.CloseAll();
    }
    static void KeepAlive(SoakRecorder& recorder, uint32_t)
    {
        recorder.Ask(kKeepaliveReq, NamedBody("KeepAlive"));
    }
    static void GetAll(SoakRecorder& recorder, uint32_t)
    {
        for (const ConfigName& name : ConfigNames())
            recorder.Ask(kGetConfigReq, NamedBody(name.name),
                         strcmp(name.name, "NetWork.DigManagerShow") == 0 ? 607 : 100);
    }
    static void Set(SoakRecorder& recorder, uint32_t value)
    {
        const Setting& setting = kSettings[recorder.index_][value % 2];
        const auto steps = static_cast<uint32_t>((setting.most - setting.least) / setting.step + 1);
        const int number = setting.least + static_cast<int>(value / 2 % steps) * setting.step;
        const std::string text = setting.begin + std::to_string(number) + setting.end;
        const JsonPtr asked = ParseJson(text, "a setting");
        const ConfigName& name = *FindConfigName(setting.name);
        const bool sureBefore = !recorder.scene_.settingsUnsure;
        const JsonPtr shown = recorder.Timed("get", [&] { return ReadElement(*recorder.session_, name); });
        const ConfigChange change = recorder.Timed("set", [&] {
            return ChangeConfig(*recorder.session_, name, asked.get(), shown.get(),
                                recorder.scene_.interface);
        });
        const bool isSure = sureBefore && !recorder.scene_.settingsUnsure;
        if (isSure && !CompareWanted(asked.get(), change.shown.get()).empty())
            recorder.verdict_.Fail("%s: %s is not what was set: %s", recorder.name_.c_str(), setting.name,
                                   text.c_str());
    }
    static void Abilities(SoakRecorder& recorder, uint32_t)
    {
        for (const char* ability : kAbilities)
            recorder.Ask(kGetAbilityReq, NamedBody(ability));
    }
    static void Inquiries(SoakRecorder& recorder, uint32_t)
    {
        for (const Inquiry& inquiry : kInquiries)
            recorder.Ask(inquiry.id, NamedBody(inquiry.name));
    }
    static void Ptz(SoakRecorder& recorder, uint32_t value)
    {
        const auto buttons = PtzButtons();
        const char* const command = buttons[value % buttons.size()].command;
        const int speed = 1 + static_cast<int>(value / 100 % 8);
        recorder.Timed("ptz", [&] { SendPtz(*recorder.session_, command, {.preset = 0, .step = speed}); });
        recorder.Stay(milliseconds(value % 100));
        recorder.Timed("ptz", [&] { SendPtz(*recorder.session_, command, {.preset = -1, .step = speed}); });
    }
    static void Preset(SoakRecorder& recorder, uint32_t value)
    {
        const char* const command = kPresetCommands[value % std::size(kPresetCommands)];
        const int preset = 1 + static_cast<int>(value / 8 % kPresets);
        recorder.Timed("preset", [&] { SendPtz(*recorder.session_, command, {.preset = preset}); });
    }
    static void AlarmsOn(SoakRecorder& recorder, uint32_t)
    {
        recorder.Ask(kAlarmSubscribeReq, NamedBody(""));
    }
    static void AlarmsOff(SoakRecorder& recorder, uint32_t)
    {
        recorder.Ask(kAlarmUnsubscribeReq, NamedBody(""));
    }
    static void KeyFrame(SoakRecorder& recorder, uint32_t)
    {
        recorder.Ask(kForceIFrameReq, NamedBody("OPForceIFrame"));
    }
    static void Find(SoakRecorder& recorder, uint32_t)
    {
        SearchSocket socket(recorder.scene_.interface);
        const auto deadline =
            Clock::now() + milliseconds(static_cast<int64_t>(kSearchMs * recorder.scene_.slowness));
        const FoundCameras found = Search(socket, deadline, [](const FoundCamera&) { return true; });
        if (found.size() != 1)
            recorder.verdict_.Fail("%s: a search finds %zu cameras", recorder.name_.c_str(), found.size());
    }
    static void Talk(SoakRecorder& recorder, uint32_t value)
    {
        recorder.Ask(kGetAbilityReq, NamedBody("TalkAudioFormat"));
        SendUnanswered(recorder.scene_.camera, kTalkReqs[value % std::size(kTalkReqs)], NamedBody("OPTalk"));
    }
    static void Garbage(SoakRecorder& recorder, uint32_t value)
    {
        SendGarbage(recorder.scene_.camera, value);
    }
    static void GarbageDatagram(SoakRecorder& recorder, uint32_t value)
    {
        SearchSocket socket(recorder.scene_.interface);
        SendGarbageDatagrams(socket, value);
    }
};

namespace {

constexpr SoakOperations::Function kFunctions[] = {
    SoakOperations::LogIn,
    SoakOperations::WatchMain,
    SoakOperations::WatchSub,
    SoakOperations::PauseFlow,
    SoakOperations::StopWatching,
    SoakOperations::KeepAlive,
    SoakOperations::GetAll,
    SoakOperations::Set,
    SoakOperations::Abilities,
    SoakOperations::Inquiries,
    SoakOperations::Ptz,
    SoakOperations::Preset,
    SoakOperations::AlarmsOn,
    SoakOperations::AlarmsOff,
    SoakOperations::KeyFrame,
    SoakOperations::Find,
    SoakOperations::Talk,
    SoakOperations::Garbage,
    SoakOperations::GarbageDatagram,
};
static_assert(std::size(kFunctions) == static_cast<size_t>(Operation::kCount));
constexpr const char* kNames[kSoakRecorders] = {"recorder 0", "recorder 1"};

} // namespace

SoakRecorder::SoakRecorder(SoakVerdict& verdict, const SoakScene& scene, size_t index)
    : verdict_(verdict), scene_(scene), index_(index), name_(kNames[index]), watch_(verdict, kNames[index])
{
}

Reply SoakRecorder::Ask(uint16_t id, const std::string& body, int result)
{
    Reply reply = Timed("an answer", [&] { return session_->Request(id, body); });
    const cJSON* ret = cJSON_GetObjectItem(reply.json.get(), "Ret");
    if (!cJSON_IsNumber(ret) || ret->valueint != result)
        verdict_.Fail("%s: request %u (%s) is answered with %.200s", name_.c_str(), id, body.c_str(),
                      reply.text.c_str());
    const char* const session = GetJsonString(reply.json.get(), "SessionID");
    if (session == nullptr || session != session_->idText())
        verdict_.Fail("%s: request %u is answered for another session", name_.c_str(), id);
    return reply;
}

void SoakRecorder::EnsureSession()
{
    if (session_)
        return;
    auto session = std::make_unique<Session>(
        scene_.camera,
        milliseconds(static_cast<int64_t>(static_cast<double>(kTimeout.count()) * scene_.slowness)));
    Timed("login", [&] { session->Login(); });
    session->setAlarmSink([this](std::string_view body) {
        ++verdict_.alarms;
        if (body.find(R"("Event":"VideoMotion")") == std::string_view::npos)
            verdict_.Fail("%s: an alarm says %.*s", name_.c_str(), static_cast<int>(body.size()),
                          body.data());
    });
    session_ = std::move(session);
}

void SoakRecorder::LogOut()
{
    watch_.CloseAll();
    session_.reset();
}

void SoakRecorder::Stay(milliseconds time)
{
    if (session_)
        session_->StayUntil(Clock::now() + time);
    else
        SleepMs(static_cast<uint32_t>(time.count()));
}

void SoakRecorder::Do(const Step& step)
{
    EnsureSession();
    kFunctions[static_cast<size_t>(step.operation)](*this, step.value);
    verdict_.Count(NameOf(step.operation));
}

void SoakRecorder::Run(const std::vector<Step>& steps)
{
    for (const Step& step : steps) {
        try {
            Stay(milliseconds(step.pauseMs));
            Do(step);
        } catch (const std::exception& failure) {
            verdict_.Fail("%s: %s: %s", name_.c_str(), NameOf(step.operation), failure.what());
            LogOut();
        }
    }
}
