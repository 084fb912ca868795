// Lets each fallible call of the server fail, one at a time, in every phase of its life (calls.txt): it
// goes on, says so, leaks nothing, keeps its threads and descriptors, and ends when it is told to.

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "camera/alarm_block.h"
#include "tests/e2e/harness/answering_param_host.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/failures/control.h"

namespace {

constexpr const char* kCallNames[] = {
#define CALL(name) #name,
#include "calls.inc"
};

struct Row {
    std::string function, error;
    int call, number; // of its error
    long result;
    bool isMade;
    std::string phases;
    std::vector<std::string> texts;
    bool mayBeSilent;
};

int ErrorNumber(const std::string& name)
{
    for (int number = 1; number < 200; number++)
        if (const char* known = strerrorname_np(number); known != nullptr && name == known)
            return number;
    return 0;
}

std::vector<std::string> Split(const std::string& text, const std::string& separator)
{
    std::vector<std::string> parts;
    for (size_t from = 0, end = 0; end != std::string::npos; from = end + separator.size()) {
        end = text.find(separator, from);
        parts.push_back(text.substr(from, end - from));
    }
    return parts;
}

std::vector<Row> ReadRows()
{
    std::vector<Row> rows;
    std::ifstream file(VELMORA_CALLS);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#'))
            continue;
        std::vector<std::string> parts = Split(line, " | ");
        std::istringstream words(parts[0]);
        std::string result;
        Row row{};
        words >> row.function >> result >> row.error >> row.phases;
        if (const size_t at = row.phases.find("serving"); at != std::string::npos)
            row.phases.replace(at, strlen("serving"), "login,live,set,alarm,search,console,background");
        row.isMade = result.starts_with("done:");
        result.erase(0, row.isMade ? strlen("done:") : 0);
        row.number = ErrorNumber(row.error);
        row.result = ErrorNumber(result) != 0 ? ErrorNumber(result) : std::stol(result);
        row.error = row.number == 0 ? result : row.error; // that names it
        row.call = static_cast<int>(std::ranges::find(kCallNames, row.function) - kCallNames);
        row.texts.assign(parts.begin() + 1, parts.end());
        std::erase(row.texts, "-");
        row.mayBeSilent = row.texts.size() != parts.size() - 1 || row.texts.empty();
        rows.push_back(row);
    }
    return rows;
}

// The file is mapped for as long as the program runs.
FailureControl& Control()
{
    static auto* const control = [] {
        const UniqueFd file(open(kControlFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (ftruncate(file.get(), sizeof(FailureControl)) != 0)
            throw std::runtime_error("no control file; run in tests/sandbox.sh");
        return static_cast<FailureControl*>(
            mmap(nullptr, sizeof(FailureControl), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
    }();
    return *control;
}

void Disarm()
{
    Control().call = kNoCall;
    Control().hasFailed = false;
}

void Arm(const Row& row, int nth)
{
    Disarm();
    Control().left = nth;
    Control().result = row.result;
    Control().error = row.number;
    Control().isMade = row.isMade;
    Control().call = row.call;
}

// Which calls of a phase fail: all of the first thirty, then a few.
int After(int nth)
{
    return nth < 30 ? nth + 1 : 2 * nth;
}

// A connection whose waits are short once a call has failed: its answer may be lost.
struct Client {
    explicit Client(uint16_t port = kServerPort) : client(port) {}
    template <typename Condition> static void Await(const std::string& what, Condition condition)
    {
        for (const auto begin = Clock::now(); !condition();) {
            const auto limit = Control().hasFailed ? std::chrono::milliseconds(400) * Slowness() : Patience();
            if (Clock::now() - begin > limit)
                throw std::runtime_error("in vain waited for " + what);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    void AwaitInput() const
    {
        Await("input", [this] { return client.HasInput(); });
    }
    Message Ask(uint16_t id, std::string_view body)
    {
        client.Send(id, body);
        AwaitInput();
        return client.ReceiveReply(static_cast<uint16_t>(id + 1));
    }
    Client& Login()
    {
        client.session = Ask(kLoginReq, R"({"UserName":"admin"})").header.ulSessionId;
        return *this;
    }
    ProtocolClient client;
};

class Failures : public Camera {
  protected:
    using Phase = void (Failures::*)();
    struct NamedPhase {
        const char* name;
        Phase run;
    };
    static const NamedPhase kPhases[8];

    static Phase PhaseOf(const std::string& name)
    {
        return std::ranges::find_if(kPhases, [&](const auto& phase) { return name == phase.name; })->run;
    }

    static bool IsInTable(const std::string& function, const std::string& phase)
    {
        return std::ranges::any_of(ReadRows(), [&](const Row& row) {
            const std::vector<std::string> phases = Split(row.phases, ",");
            return row.function == function &&
                   (std::ranges::count(phases, phase) + std::ranges::count(phases, "background") > 0);
        });
    }
    void SetUp() override { std::ofstream("/var/cfg/CustomTools.cfg") << "[CustomTools]\n"; }

    void LogInAndRead()
    {
        Client client;
        client.Login();
        for (const char* name :
             {"NetWork.NetCommon", "NetWork.NetDHCP", "General.Location", "Simplify.Encode"})
            EXPECT_NE(client.Ask(kGetConfigReq, R"({"Name":")" + std::string(name) + "\"}").body, "");
        client.Ask(kSysinfoReq, R"({"Name":"SystemInfo"})");
    }
    void Watch()
    {
        Client command;
        command.Login();
        Client stream;
        stream.client.session = command.client.session;
        stream.Ask(kMonitorClaim, MonitorBody("Claim", "Main"));
        command.Ask(kMonitorReq, MonitorBody("Start", "Main"));
        media->Publish(kMainStream, MakeGop());
        for (size_t bytes = 0; bytes < 5000 + 700 + 320 + 90;) {
            stream.AwaitInput();
            const Message message = stream.client.Receive();
            EXPECT_EQ(message.header.usMessageId, 1412);
            bytes += message.body.size();
        }
    }
    void ChangeSettings()
    {
        Client client;
        client.Login();
        client.Ask(kSetConfigReq,
                   R"({"MAC":"02:00:5E:A1:B2:C3","Name":"NetWork.NetCommon","NetWork.NetCommon":)"
                   R"({"HostName":"cam","HttpPort":1025,"MaxBps":0}})");
        const std::string told = answering.Take();
        EXPECT_TRUE(Control().hasFailed || told.find(":0104 ") != std::string::npos) << told; // the port
        client.Ask(kSysManagerReq, R"({"Name":"OPTimeSetting","OPTimeSetting":"2025-01-02 03:04:05"})");
    }
    void RaiseAlarm()
    {
        const ShmAttachment block(IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode));
        Client client;
        client.Login().Ask(kAlarmSubscribeReq, "{}");
        for (const uint32_t status : {1U, 0U}) {
            StoreLe(block.get() + 2 * sizeof(AlarmEntry), status);
            do
                client.AwaitInput();
            while (client.client.Receive().body.find(status == 1 ? "Start\"}" : "Stop\"}") ==
                   std::string::npos);
        }
    }
    // The answer is broadcast, and the server hears it itself.
    void Search()
    {
        const UniqueFd searcher(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const std::string request = ProtocolClient().Request(kDevSearchReq);
        const sockaddr_in camera{.sin_family = AF_INET,
                                 .sin_port = htons(kSearchPort),
                                 .sin_addr = {htonl(INADDR_LOOPBACK)},
                                 .sin_zero = {}};
        const int before = server->CountLog("cmd = 1531");
        sendto(searcher.get(), request.data(), request.size(), 0, reinterpret_cast<const sockaddr*>(&camera),
               sizeof camera);
        Client::Await("the answer's echo", [&] { return server->CountLog("cmd = 1531") > before; });
    }
    void ReadConsole()
    {
        Client recorder;
        const int before = server->CountOutput(": Command disconnect\n");
        {
            const Client console(414);
            Client::Await("the log", [&] {
                recorder.Ask(kKeepaliveReq, "");
                return console.client.HasInput();
            });
        }
        Client::Await("its end", [&] { return server->CountOutput(": Command disconnect\n") > before; });
    }
    // A process by that name alone, which is there until the test ends.
    void StartSibling(const char* name)
    {
        const std::string program = std::string("/sandbox/bin/") + name;
        if (std::exchange(hasSibling, true) || !std::filesystem::copy_file("/bin/sleep", program) ||
            fork() != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGUSR2, SIG_IGN); // what an upgrade sends
        execl(program.c_str(), name, "1000", nullptr);
        _exit(127);
    }
    void Reboot()
    {
        StartSibling("RecHost");
        const int before = CallsOf("killall RecHost");
        Client client;
        client.Ask(kSysManagerReq, R"({"Name":"OPMachine"})");
        Client::Await("killall", [&] { return CallsOf("killall RecHost") > before; });
    }
    // An upgrade with a package, one with a bad one, and a reset, which restarts the camera four seconds
    // later.
    void Operate()
    {
        StartSibling("MainHost");
        std::ofstream("/dev/upGradeFile.FLS").write("Q7RTN\0\0\0OS05A10\0\1\0\0\0\1\0\0\0", 24);
        const int before = CallsOf("reboot -f"), done = Control().operationsDone;
        server->Signal(SIGUSR1);
        WaitUntil("the operations", [&] { return Control().operationsDone > done; });
        Client::Await("the restart", [&] { return CallsOf("reboot -f") > before; });
    }
    static int CallsOf(const std::string& command)
    {
        std::ifstream calls("/sandbox/calls");
        int count = 0;
        for (std::string line; std::getline(calls, line);)
            count += line == command ? 1 : 0;
        return count;
    }

    void Start()
    {
        Control().isUp = false;
        server.emplace();
        WaitUntil("the start", [] { return Control().isUp.load(); });
        left = CountLeft();
    }
    [[nodiscard]] size_t CountLeft() const
    {
        return 1000 * server->CountEntries("task") + server->CountEntries("fd");
    }
    void AwaitQuiet() const
    {
        EXPECT_NO_THROW(
            WaitUntil("as many threads and descriptors as before", [&] { return CountLeft() == left; }))
            << CountLeft() << " instead of " << left;
    }
    void Stop()
    {
        server->Signal(SIGTERM);
        EXPECT_EQ(server->WaitForExit(), 0);
        server->ExpectHealthy();
    }
    [[nodiscard]] bool HasWritten(const Row& row) const
    {
        return std::ranges::any_of(row.texts, [this](const std::string& text) {
            return server->CountLog(text) + server->CountOutput(text) > 0;
        });
    }
    void ExpectWritten(const Row& row)
    {
        EXPECT_NO_THROW(WaitUntil("its text", [&] { return row.mayBeSilent || HasWritten(row); }));
    }
    static std::string Trace(const Row& row, int nth)
    {
        std::ostringstream text;
        text << row.function << " " << row.error << ", call " << nth << ", at 0x" << std::hex
             << Control().caller;
        return text.str();
    }

    // Each returns whether the call was reached.
    bool FailAtStart(const Row& row, int nth)
    {
        Arm(row, nth);
        Start();
        const bool hasFailed = Control().hasFailed;
        SCOPED_TRACE(Trace(row, nth));
        if (hasFailed)
            ExpectWritten(row);
        if (!HasWritten(row))
            Disarm(); // no short waits: it serves
        try {
            LogInAndRead();
        } catch (const std::runtime_error& failure) { // it does not serve, and has said why
            EXPECT_TRUE(Control().hasFailed) << failure.what();
        }
        Disarm();
        Stop();
        return hasFailed;
    }
    bool FailAtStop(const Row& row, int nth)
    {
        Start();
        Watch();
        Watcher watcher;
        Arm(row, nth);
        Stop();
        SCOPED_TRACE(Trace(row, nth));
        ExpectWritten(row);
        return Control().hasFailed;
    }
    bool Fail(const Row& row, Phase phase, int nth)
    {
        Arm(row, nth);
        try {
            (this->*phase)();
        } catch (const std::runtime_error& failure) {
            SCOPED_TRACE(Trace(row, nth));
            EXPECT_TRUE(Control().hasFailed) << failure.what();
        }
        SCOPED_TRACE(Trace(row, nth));
        AwaitQuiet();
        const bool hasFailed = Control().hasFailed;
        Disarm();
        (this->*phase)();
        LogInAndRead();
        AwaitQuiet();
        if (hasFailed)
            ExpectWritten(row);
        server->ExpectHealthy();
        server->ForgetWritten();
        return hasFailed;
    }
    void SweepServing(const Row& row, Phase phase)
    {
        Start();
        int nth = 1;
        while (!HasFailure() && Fail(row, phase, nth))
            nth = After(nth);
        Stop();
        Conclude(row, nth);
    }
    static void Conclude(const Row& row, int nth)
    {
        EXPECT_GT(nth, 1) << row.function << " is not called here";
        std::cout << "up to " << nth << "\n";
    }
    void Sweep(const Row& row, const std::string& phase)
    {
        if (phase != "startup" && phase != "stop")
            return SweepServing(row, PhaseOf(phase));
        int nth = 1;
        while (!HasFailure() && (phase == "stop" ? FailAtStop(row, nth) : FailAtStart(row, nth)))
            nth = After(nth);
        Conclude(row, nth);
    }

    AnsweringParamHost answering; // on the queue of the camera's host
    bool hasSibling = false;
    size_t left = 0; // threads, in thousands, and descriptors of the server that has just started
};

const Failures::NamedPhase Failures::kPhases[] = {
    {"login", &Failures::LogInAndRead}, {"live", &Failures::Watch},
    {"set", &Failures::ChangeSettings}, {"alarm", &Failures::RaiseAlarm},
    {"search", &Failures::Search},      {"console", &Failures::ReadConsole},
    {"reboot", &Failures::Reboot},      {"operations", &Failures::Operate},
};

// A row in one of its phases.
struct Case {
    Row row;
    std::string phase;
};

void PrintTo(const Case& c, std::ostream* out)
{
    *out << c.phase;
}

std::vector<Case> Cases()
{
    std::vector<Case> cases;
    for (const Row& row : ReadRows())
        for (const std::string& phase : Split(row.phases, ","))
            if (phase != "background")
                cases.push_back({row, phase});
    // Those that wait longest come first.
    std::stable_partition(cases.begin(), cases.end(),
                          [](const Case& c) { return c.phase == "operations" || c.phase == "alarm"; });
    return cases;
}

class SweepOfCalls : public Failures, public testing::WithParamInterface<Case> {};
TEST_P(SweepOfCalls, FailOneByOne)
{
    Sweep(GetParam().row, GetParam().phase);
}
INSTANTIATE_TEST_SUITE_P(Sweep, SweepOfCalls, testing::ValuesIn(Cases()), [](const auto& test) {
    const Case& c = test.param;
    return c.row.function + "_" + c.row.error + "_" + c.phase;
});

// The first call of each at the start, in some shares side by side, and in a set.
class QuickCalls : public Failures, public testing::WithParamInterface<size_t> {};
constexpr size_t kShares = 6;
TEST_P(QuickCalls, FailOnce)
{
    size_t number = 0;
    for (const Case& c : Cases())
        EXPECT_TRUE(c.phase != "startup" || number++ % kShares != GetParam() || FailAtStart(c.row, 1));
    if (GetParam() == 0)
        Start();
    for (const Case& c : Cases())
        EXPECT_TRUE(c.phase != "set" || GetParam() != 0 || Fail(c.row, PhaseOf(c.phase), 1));
}
INSTANTIATE_TEST_SUITE_P(Quick, QuickCalls, testing::Range<size_t>(0, kShares));

// The undisturbed scene calls what is in the table, writes none of its texts, and leaves nothing.
TEST_F(Failures, SceneWithoutAFailure)
{
    Start();
    for (const auto& phase : kPhases) {
        int before[kCalls];
        std::copy_n(std::begin(Control().count), kCalls, before);
        (this->*phase.run)();
        AwaitQuiet();
        for (int call = 0; call < kCalls; call++)
            EXPECT_TRUE(Control().count[call] == before[call] || IsInTable(kCallNames[call], phase.name))
                << kCallNames[call] << " in " << phase.name;
    }
    for (const Row& row : ReadRows())
        EXPECT_FALSE(HasWritten(row)) << row.function << " " << row.error;
    Stop();
}

} // namespace
