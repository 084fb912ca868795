// Long uptimes and leaps of the wall clock, by data/time_scenes.tsv: sessions stay, media flows, keepalives
// count, and every date that the server writes is right. The server is the unchanged one, in a time namespace
// of its own, and with a wall clock that the test sets (hosts/wall_clock.cpp).

#include <fcntl.h>
#include <sched.h>

#include <ctime>
#include <fstream>
#include <sstream>

#include "camera/alarm_block.h"
#include "common/keeper_block.h"
#include "media/media_layout.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/table.h"

namespace {

constexpr time_t kZoneSeconds = 5 * 3600 + 1800;
constexpr char kZone[] = "TST-5:30";
constexpr auto kSceneTime = std::chrono::seconds(6); // for each instant

struct TimeScene {
    std::string name, uptime, instants;
};
void PrintTo(const TimeScene& scene, std::ostream* out)
{
    *out << scene.uptime << " s, " << scene.instants;
}

std::vector<TimeScene> Scenes()
{
    std::vector<TimeScene> scenes;
    for (const auto& cells : ReadTable(VELMORA_SEQUENCES "/time_scenes.tsv", 3))
        scenes.push_back({cells[0], cells[1], cells[2]});
    return scenes;
}

time_t ReadTime(const std::string& text, const char* format)
{
    tm fields{};
    EXPECT_NE(strptime(text.c_str(), format, &fields), nullptr) << text;
    return timegm(&fields);
}

class TimeTest : public Camera, public testing::WithParamInterface<TimeScene> {
  protected:
    void SetUp() override
    {
        setenv("TZ", kZone, 1);
        if (GetParam().uptime != "-")
            SetUptime(std::stoll(GetParam().uptime));
        if (GetParam().instants != "-") {
            SetClock(time(nullptr));
            setenv("WALL_CLOCK", kClockFile, 1);
            setenv("LD_PRELOAD", VELMORA_WALL_CLOCK, 1);
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
        }
        StartServer();
    }
    // Of processes that are started from now on.
    static void SetUptime(int64_t seconds)
    {
        ASSERT_EQ(unshare(CLONE_NEWTIME), 0);
        std::ofstream offsets("/proc/self/timens_offsets");
        for (const auto& [name, clock] :
             {std::pair{"monotonic", CLOCK_MONOTONIC}, {"boottime", CLOCK_BOOTTIME}}) {
            timespec now{};
            clock_gettime(clock, &now);
            offsets << name << ' ' << seconds - now.tv_sec << " 0\n";
        }
        ASSERT_TRUE(offsets.flush());
    }
    void SetClock(time_t now)
    {
        ahead_ = now - time(nullptr);
        set_ = now;
        const UniqueFd file(open(kClockFile, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        const int64_t seconds = ahead_;
        ASSERT_EQ(write(file.get(), &seconds, sizeof seconds), ssize_t{sizeof seconds});
    }
    [[nodiscard]] time_t Now() const { return time(nullptr) + ahead_; }
    // Whether the server can have read this from its clock since that time. The two look at their clocks with
    // different precision.
    [[nodiscard]] bool IsSince(time_t from, time_t seen) const
    {
        return seen >= from - 1 && seen <= Now() + 1;
    }

    // A group of pictures arrives, its key frame with the date of now.
    void WatchPictures(Watcher& watcher)
    {
        const auto gop = MakeGop();
        const time_t before = Now();
        media->Publish(kMainStream, gop);
        const auto word = LoadLe<uint32_t>(ExpectFrame(watcher.media, gop[0]).data() + 8);
        ExpectFrames(watcher.media, {gop.begin() + 1, gop.end()});
        time_t at = before - 1;
        while (at <= Now() + 1 && word != DateWord(at + kZoneSeconds))
            at++;
        EXPECT_LE(at, Now() + 1) << "the date word " << word << " at " << before;
    }
    static uint32_t DateWord(time_t local)
    {
        tm at{};
        gmtime_r(&local, &at);
        const int year = at.tm_year - 100;
        return static_cast<uint32_t>(at.tm_sec | at.tm_min << 6 | at.tm_hour << 12 | at.tm_mday << 17 |
                                     (at.tm_mon + 1) << 22) |
               static_cast<uint32_t>(year) << 26;
    }
    void AskTime(ProtocolClient& recorder)
    {
        const time_t before = Now();
        const std::string body = recorder.Ask(kTimeQueryReq).body;
        constexpr std::string_view kBegin = R"({"Name":"OPTimeQuery","OPTimeQuery":")";
        ASSERT_TRUE(body.starts_with(kBegin)) << body;
        EXPECT_TRUE(IsSince(before, ReadTime(body.substr(kBegin.size()), "%Y-%m-%d %H:%M:%S"))) << body;
    }
    // Alarms of before the leap may be on their way.
    void AwaitAlarm(ProtocolClient& subscriber)
    {
        constexpr std::string_view kBegin =
            R"({"AlarmInfo":{"Channel":0,"Event":"VideoMotion","StartTime":")";
        std::string body;
        do {
            body = subscriber.Receive().body;
            ASSERT_TRUE(body.starts_with(kBegin)) << body;
        } while (!IsSince(set_, ReadTime(body.substr(kBegin.size()), "%a %b %d %H:%M:%S %Y") - kZoneSeconds));
    }
    void AwaitKeeperTime()
    {
        const ShmAttachment keeper(IpcShareMemInit(kKeeperKey, kKeeperBlockBytes, kKeeperBlockMode));
        WaitUntil("the keeper's time", [&] {
            const auto seen = LoadLe<uint32_t>(keeper.get() + kKeeperSlotVelmora * sizeof(KeeperSlot));
            return IsSince(set_, set_ - static_cast<int32_t>(static_cast<uint32_t>(set_) - seen));
        });
    }

    static constexpr char kClockFile[] = "/param/clock";
    time_t ahead_ = 0; // of this machine's clock
    time_t set_ = 0;
};

TEST_P(TimeTest, SessionsStayAndDatesAreRight)
{
    const ShmAttachment alarm(IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode));
    StoreLe(alarm.get() + 2 * sizeof(AlarmEntry), 1U);
    const auto begin = Clock::now();
    ProtocolClient silent; // has not logged in, so that its end is nobody else's
    Watcher watcher;
    ProtocolClient subscriber;
    subscriber.Login();
    subscriber.Ask(kAlarmSubscribeReq);
    set_ = Now();
    const auto live = [&] {
        WatchPictures(watcher);
        AskTime(watcher.command);
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // ten groups a second are plenty
    };
    std::istringstream instants(GetParam().instants);
    for (std::string instant; instants >> instant && instant != "-" && !HasFailure();) {
        SCOPED_TRACE(instant);
        SetClock(ReadTime(instant, "%Y-%m-%dT%H:%M:%S"));
        for (const auto end = Clock::now() + kSceneTime; Clock::now() < end && !HasFailure();)
            live();
        AwaitAlarm(subscriber);
        AwaitKeeperTime();
        EXPECT_FALSE(silent.HasInput()) << "removed after less than 30 seconds";
    }
    if (GetParam().uptime == "-" || HasFailure())
        return;
    for (; !silent.HasInput() && Clock::now() < begin + Patience(std::chrono::seconds(60)); live())
        subscriber.Send(kKeepaliveReq);
    EXPECT_TRUE(silent.HasInput()) << "a silent connection is not removed";
    EXPECT_GE(Clock::now() - begin, std::chrono::seconds(29));
    live();
}

INSTANTIATE_TEST_SUITE_P(Scenes, TimeTest, testing::ValuesIn(Scenes()),
                         [](const auto& test) { return test.param.name; });

} // namespace
