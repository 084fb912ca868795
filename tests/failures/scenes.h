// What is done with the server while its calls fail: a phase of its life each, as often as one likes.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <fstream>

#include "camera/alarm_block.h"
#include "tests/answering_host.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/failures/control.h"

// The file is mapped for as long as the program runs.
inline FailureControl& Control()
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

// Waits are short once a call has failed: what is awaited may be lost.
template <typename Condition> void Await(const std::string& what, Condition condition)
{
    for (const auto begin = Clock::now(); !condition();) {
        const auto limit = Control().hasFailed ? std::chrono::milliseconds(400) * Slowness() : Patience();
        if (Clock::now() - begin > limit)
            throw std::runtime_error("in vain waited for " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

struct Client : ProtocolClient {
    using ProtocolClient::ProtocolClient;
    void AwaitInput() const
    {
        Await("input", [this] { return HasInput(); });
    }
    Message Ask(uint16_t id, std::string_view body)
    {
        Send(id, body);
        AwaitInput();
        return ReceiveReply(static_cast<uint16_t>(id + 1));
    }
    void Login() { session = Ask(kLoginReq, R"({"UserName":"admin"})").header.ulSessionId; }
};

class Scenes : public Camera {
  protected:
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
        stream.session = command.session;
        stream.Ask(kMonitorClaim, MonitorBody("Claim", "Main"));
        command.Ask(kMonitorReq, MonitorBody("Start", "Main"));
        media->Publish(kMainStream, MakeGop());
        for (size_t bytes = 0; bytes < 5000 + 700 + 320 + 90;) {
            stream.AwaitInput();
            const Message message = stream.Receive();
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
        const std::string told = answering.TakeText();
        EXPECT_TRUE(Control().hasFailed || (told + " ").find(":0104 ") != std::string::npos)
            << told; // the port
        client.Ask(kSysManagerReq, R"({"Name":"OPTimeSetting","OPTimeSetting":"2025-01-02 03:04:05"})");
    }
    void RaiseAlarm()
    {
        const ShmAttachment block(IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode));
        Client client;
        client.Login();
        client.Ask(kAlarmSubscribeReq, "{}");
        for (const uint32_t status : {1U, 0U}) {
            StoreLe(block.get() + 2 * sizeof(AlarmEntry), status);
            do
                client.AwaitInput();
            while (client.Receive().body.find(status == 1 ? "Start\"}" : "Stop\"}") == std::string::npos);
        }
    }
    // The answer is broadcast, and the server hears it itself.
    void Search()
    {
        const ProtocolClient recorder; // comes and goes beside it
        UniqueFd socketOfSearcher(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const sockaddr_in camera{.sin_family = AF_INET,
                                 .sin_port = htons(kSearchPort),
                                 .sin_addr = {htonl(INADDR_LOOPBACK)},
                                 .sin_zero = {}};
        connect(socketOfSearcher.get(), reinterpret_cast<const sockaddr*>(&camera), sizeof camera);
        const int before = server->CountLog("cmd = 1531");
        ProtocolClient(std::move(socketOfSearcher)).Send(kDevSearchReq);
        Await("the answer's echo", [&] { return server->CountLog("cmd = 1531") > before; });
    }
    void ReadConsole()
    {
        Client recorder;
        const int before = server->CountOutput(": Command disconnect\n");
        {
            const Client console(414);
            Await("the log", [&] {
                recorder.Ask(kKeepaliveReq, "");
                return console.HasInput();
            });
        }
        Await("its end", [&] { return server->CountOutput(": Command disconnect\n") > before; });
    }
    // A process by that name alone, which is there until the test ends. An upgrade's signal does not end it.
    void StartSibling(const std::string& name)
    {
        const std::string program = "/sandbox/bin/" + name;
        const std::string command = "cp /bin/sleep " + program + " && (trap '' USR2; exec " + program +
                                    " 1000) > /sandbox/sibling 2>&1 &";
        if (!std::exchange(hasSibling, true)) {
            ASSERT_EQ(std::system(command.c_str()), 0);
        }
    }
    void Reboot()
    {
        StartSibling("RecHost");
        const int before = CallsOf("killall RecHost");
        Client client;
        client.Ask(kSysManagerReq, R"({"Name":"OPMachine"})");
        Await("killall", [&] { return CallsOf("killall RecHost") > before; });
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
        Await("the restart", [&] { return CallsOf("reboot -f") > before; });
    }
    static int CallsOf(const std::string& command)
    {
        std::ifstream calls("/sandbox/calls");
        int count = 0;
        for (std::string line; std::getline(calls, line);)
            count += line == command ? 1 : 0;
        return count;
    }

    using Phase = void (Scenes::*)();
    static constexpr std::pair<const char*, Phase> kPhases[] = {
        {"login", &Scenes::LogInAndRead}, {"live", &Scenes::Watch},         {"set", &Scenes::ChangeSettings},
        {"alarm", &Scenes::RaiseAlarm},   {"search", &Scenes::Search},      {"console", &Scenes::ReadConsole},
        {"reboot", &Scenes::Reboot},      {"operations", &Scenes::Operate},
    };

  private:
    AnsweringHost answering; // on the queue of the camera's host
    bool hasSibling = false;
};
