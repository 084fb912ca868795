// The processes around the server die, stop and come back at every moment: what the server does meanwhile,
// and how soon all is well again. Each row of data/peers.tsv is a test, on hosts that are processes of
// their own.

#include <sys/msg.h>
#include <sys/shm.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "camera/alarm_block.h"
#include "camera/parameter_block_layout.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/table.h"

namespace {

constexpr std::chrono::seconds kStall{40};
constexpr int kMessagesThatGoOn = 100;                          // more than were on their way
constexpr key_t kClaimKey = 0x61766C9A, kLogFileKey = 12930005; // semaphores
constexpr char kSetBody[] = R"({"Name":"System.TimeZone","System.TimeZone":{"timeMin":-480}})";
constexpr char kOtherSet[] =
    R"({"Name":"AVEnc.VideoColor.[0]","AVEnc.VideoColor.[0]":[{"VideoColorParam":{"Brightness":7}}]})";

// How a peer runs, and the objects that are its own.
struct Peer {
    const char* hosts = nullptr; // of the bench camera; null for another program
    std::vector<key_t> segments = {}, queues = {};
};
const std::map<std::string, Peer> kPeers = {
    {"ParamHost", {"parameters", {kSysConfigKey, kParameterKey}, {kParameterKey}}},
    {"MediaHost",
     {"media", {kRings[0].key, kRings[1].key, kRings[2].key}, {kPositionQueueKey, kControlQueueKey}}},
    {"alarm", {"alarm", {kAlarmKey}}},
    {"recorder", {}},
    {"server", {}},
};

struct Row {
    std::string peer, fault, moment, pauseAt, during, bound, after, log;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.peer << " " << row.fault << ", " << row.moment;
}

std::vector<Row> ReadRows()
{
    std::vector<Row> rows;
    for (const auto& c : ReadTable(VELMORA_SEQUENCES "/peers.tsv", 8))
        if (c[5] != "none")
            rows.push_back({c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]});
    return rows;
}

// All objects of the system, by kind and key.
std::set<std::pair<std::string, key_t>> Objects()
{
    std::set<std::pair<std::string, key_t>> objects;
    for (const char* kind : {"shm", "msg", "sem"}) {
        std::ifstream in(std::string("/proc/sysvipc/") + kind);
        std::string line;
        for (std::getline(in, line); std::getline(in, line);)
            objects.emplace(kind, std::stoi(line));
    }
    return objects;
}

size_t Queued(key_t key)
{
    msqid_ds state{};
    return msgctl(msgget(key, 0), IPC_STAT, &state) == 0 ? state.msg_qnum : SIZE_MAX;
}

class Peers : public testing::TestWithParam<Row> {
  protected:
    ServerProcess& Start(const std::string& name)
    {
        if (name == "server" && processes_.contains(name))
            Get(name).ExpectHealthy(); // dead it may be, but not of itself
        processes_.erase(name);
        const char* const hosts = kPeers.at(name).hosts;
        std::vector<std::string> arguments;
        if (hosts != nullptr)
            arguments = {"--hosts", hosts, "--clips", VELMORA_CLIPS};
        if (!hasFailed_ && row_.pauseAt.starts_with(name + ":"))
            arguments.insert(arguments.end(), {"--pause-at", row_.pauseAt.substr(name.size() + 1)});
        const std::string path = hosts != nullptr     ? VELMORA_BENCH_CAMERA
                                 : name == "recorder" ? "RecHost"
                                                      : ServerProcess::Path();
        ServerProcess& process = processes_.try_emplace(name, arguments, path).first->second;
        if (hosts != nullptr)
            process.WaitForOutput("ready");
        else if (name == "recorder") // until it would hear that it is told
            WaitUntil("the recording", [] {
                std::ifstream recording("/media/SDCard/recording");
                return std::string(std::istreambuf_iterator<char>(recording), {}) == "recording\n";
            });
        else
            process.WaitForLog("ListenSocketThread");
        return process;
    }
    ServerProcess& Get(const std::string& name) { return processes_.at(name); }

    void SetUp() override
    {
        std::filesystem::current_path(getenv("SANDBOX"));
        std::error_code isThere;
        std::filesystem::create_symlink(VELMORA_BENCH_CAMERA, "RecHost", isThere); // goes by its name
        for (const char* name : {"ParamHost", "MediaHost", "alarm", "recorder", "server"})
            Start(name);
        Get("server").WaitForLog(": type = 10 index = 1\n"); // the last of its threads
    }
    void TearDown() override { Get("server").ExpectHealthy(); }

    void SendSet()
    {
        if (pending_)
            return;
        pending_.emplace().Login(); // or its silence would end all others without a session
        pending_->Send(kSetConfigReq, kSetBody);
    }
    // A set of the new server is answered by its own answer, not by that to the former server's set, which
    // the host still has to answer; and does not change the value of one that the host still has to take.
    void AwaitLateAnswer()
    {
        ProtocolClient client;
        const ServerProcess& host = Get("ParamHost");
        const size_t before = Queued(kParameterKey);
        client.Send(kSetConfigReq, kOtherSet);
        if (row_.moment == "before")
            Get("server").WaitForLog(row_.log);
        else
            WaitUntil("the set's request", [&] { return Queued(kParameterKey) > before; });
        host.Signal(SIGCONT);
        if (row_.moment == "between") { // it stops again when the former server's is answered
            host.WaitUntilStopped();
            Get("server").WaitForLog(row_.log);
            EXPECT_FALSE(client.HasInput());
            host.Signal(SIGCONT);
        }
        client.ReceiveReply(kSetConfigReq + 1);
        const std::string body = client.Ask(kGetConfigReq, R"({"Name":"AVEnc.VideoColor.[0]"})").body;
        EXPECT_NE(body.find("Brightness\":7"), std::string::npos) << body;
        if (row_.moment == "before") {
            EXPECT_EQ(ShmAttachment(shmget(kSysConfigKey, 0, 0)).get()[block::kTimeMode], 0);
        }
    }
    // On the connection that subscribed before the peer failed, if there still is one.
    void AwaitAlarm(const char* status)
    {
        if (!subscriber_ || row_.fault == "stopped") {
            subscriber_.emplace().Login();
            subscriber_->Ask(kAlarmSubscribeReq);
        }
        while (subscriber_->Receive().body.find(status) == std::string::npos) {
        }
    }
    static void AskForSet(bool isSeen)
    {
        ProtocolClient client;
        const std::string set = client.Ask(kSetConfigReq, kSetBody).body;
        EXPECT_NE(set.find("\"Ret\":100"), std::string::npos) << set;
        const std::string seen = client.Ask(kGetConfigReq, R"({"Name":"System.TimeZone"})").body;
        EXPECT_TRUE(!isSeen || seen.find("-480") != std::string::npos) << seen;
    }
    void Do(const std::string& step)
    {
        const std::map<std::string, std::function<void()>> steps = {
            {"request", [] { ProtocolClient().Login(); }},
            {"keyframe",
             [] {
                 ProtocolClient client;
                 client.Send(kForceIFrameReq);
                 client.ReceiveReply(kForceIFrameReply);
             }},
            {"set", [] { AskForSet(true); }},
            {"set-acknowledged", [] { AskForSet(false); }},
            {"set-waits", [this] { SendSet(); }}, // what comes of it is looked at when the peer is back
            {"set-answered", [this] { pending_->ReceiveReply(kSetConfigReq + 1); }},
            {"server-restart", [this] { Start("server"); }},
            {"late-answer", [this] { AwaitLateAnswer(); }},
            {"video", [] { Watcher().media.ReadMessage(); }},
            {"watched",
             [this] {
                 for (int i = 0; i < kMessagesThatGoOn; i++)
                     watcher_->media.ReadMessage();
             }},
            {"alarms", [this] { Get("alarm").Signal(SIGUSR2), AwaitAlarm("Start"); }},
            {"alarm-lasts", [this] { AwaitAlarm("Start"); }},
            {"alarm-ended", [this] { AwaitAlarm("Stop"); }},
            {"reboot-asked", [] { ProtocolClient().Ask(kSysManagerReq, R"({"Name":"OPMachine"})"); }},
            {"closes", [this] { EXPECT_EQ(Get("recorder").WaitForExit(), 0); }},
            {"continue-hosts",
             [this] { Get("ParamHost").Signal(SIGCONT), Get("MediaHost").Signal(SIGCONT); }},
        };
        steps.at(step)();
    }
    void DoAll(const std::string& steps)
    {
        std::istringstream words(steps);
        for (std::string step; words >> step && !HasFailure();) {
            SCOPED_TRACE(step);
            Do(step);
        }
    }
    // Until it has really stopped, a message may still be handed to it where it waits.
    void Stop(const std::string& name)
    {
        Get(name).Signal(SIGSTOP);
        Get(name).WaitUntilStopped();
    }
    void ReachMoment()
    {
        if (row_.during.find("watched") != std::string::npos)
            watcher_.emplace();
        if (row_.peer == "MediaHost" && row_.moment == "idle") {
            Get("MediaHost").Signal(SIGUSR1);
            Get("server").WaitForLog("Endflag == 253", 2);
        } else if (row_.peer == "alarm" && row_.moment == "between") {
            Do("alarms");
        } else if (row_.peer == "server" && row_.moment == "before") {
            Stop("ParamHost");
            SendSet();
            WaitUntil("the set's request", [] { return Queued(kParameterKey) == 1; });
        }
        const size_t colon = row_.pauseAt.find(':');
        if (colon == std::string::npos)
            return;
        if (row_.pauseAt.starts_with("ParamHost"))
            SendSet();
        ServerProcess& paused = Get(row_.pauseAt.substr(0, colon));
        paused.WaitUntilStopped();
        if (row_.peer == "server" && row_.moment == "after") { // the answer lies in the queue
            Stop("server");
            paused.Signal(SIGCONT);
            paused.WaitUntilStopped();
        }
    }
    void Fail()
    {
        hasFailed_ = true;
        ServerProcess& peer = Get(row_.peer);
        if (row_.fault == "stopped") {
            Stop(row_.peer);
        } else if (row_.fault == "removed") {
            for (const key_t key : kPeers.at(row_.peer).segments)
                shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
            for (const key_t key : kPeers.at(row_.peer).queues)
                msgctl(msgget(key, 0), IPC_RMID, nullptr);
            peer.Signal(SIGCONT);
        } else {
            peer.Signal(row_.fault == "killed" ? SIGKILL : SIGTERM);
            peer.Signal(SIGCONT);
            peer.WaitForExit();
            if (row_.peer == "server")
                pending_.reset();
        }
    }
    void Recover()
    {
        if (row_.fault == "removed")
            Get(row_.peer).Signal(SIGKILL);
        if (row_.fault != "stopped") {
            Start(row_.peer);
            return;
        }
        Get(row_.peer).Signal(SIGCONT);
        if (row_.moment == "idle" && row_.peer == "MediaHost")
            Get("MediaHost").Signal(SIGUSR1);
    }

    const Row row_ = GetParam();
    std::map<std::string, ServerProcess> processes_;
    bool hasFailed_ = false;                // the peer
    std::optional<ProtocolClient> pending_; // waits for the answer to its set
    std::optional<Watcher> watcher_;
    std::optional<ProtocolClient> subscriber_; // to alarms
};

TEST_P(Peers, Row)
try {
    const size_t descriptors = Get("server").CountEntries("fd");
    const size_t threads = Get("server").CountEntries("task");
    std::set known = Objects();
    known.insert({{"sem", kClaimKey}, {"sem", kLogFileKey}}); // made when they are needed
    if (row_.peer == "ParamHost" && row_.fault == "removed")
        known.emplace("shm", IPC_PRIVATE); // the block, attached once for ever
    ReachMoment();
    Fail();
    DoAll(row_.during);
    // A recorder whose request waits hears nothing, until its connection ends with 30 s of silence.
    if (row_.fault == "stopped")
        std::this_thread::sleep_for(kStall / 2);
    EXPECT_FALSE(row_.during.find("set-waits") != std::string::npos && pending_->HasInput());
    if (row_.fault == "stopped")
        std::this_thread::sleep_for(kStall / 2);
    Recover();
    const auto back = Clock::now();
    DoAll(row_.after);
    const std::chrono::duration<double> took = Clock::now() - back;
    std::cout << "well again after " << took.count() << " s\n";
    EXPECT_LE(took, std::chrono::seconds(std::stoi(row_.bound)) * Slowness());
    if (!row_.log.empty())
        Get("server").WaitForLog(row_.log);
    pending_.reset();
    watcher_.reset();
    subscriber_.reset();
    WaitUntil("descriptors and threads to go", [&] {
        // Fewer when one of the start was still open then.
        return Get("server").CountEntries("fd") <= descriptors &&
               Get("server").CountEntries("task") <= threads;
    });
    WaitUntil("unknown objects to go", [&] {
        const std::set now = Objects();
        return std::includes(known.begin(), known.end(), now.begin(), now.end());
    });
} catch (const std::exception& failure) {
    FAIL() << failure.what();
}

std::string NameOf(const testing::TestParamInfo<Row>& test)
{
    std::string name = test.param.peer + "_" + test.param.fault + "_" + test.param.moment;
    std::erase(name, '-');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Matrix, Peers, testing::ValuesIn(ReadRows()), NameOf);

} // namespace
