// The debug console: one client at a time sees the log, and nobody waits for it.

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include "tests/e2e/harness/camera_test.h"

namespace {

class ConsoleClient {
  public:
    explicit ConsoleClient(int receiveBuffer = 0)
    {
        if (receiveBuffer > 0)
            setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(414);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("no console");
    }
    void Type(std::string_view text) const
    {
        EXPECT_EQ(send(fd_.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    [[nodiscard]] bool HasInput() const
    {
        pollfd readable{fd_.get(), POLLIN, 0};
        return poll(&readable, 1, 0) > 0;
    }
    void WaitFor(const std::string& text)
    {
        WaitUntil("the console to show '" + text + "'", [&] {
            char bytes[65536];
            const ssize_t count = recv(fd_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
            seen_.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
            return seen_.find(text) != std::string::npos;
        });
    }
    void Close() { fd_.reset(); }

  private:
    UniqueFd fd_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::string seen_;
};

constexpr auto kTrace = "ProcessKeepaliveReq"; // of each keepalive, in the log
using Console = RunningCamera;

// Waits until the log goes to the client.
void WaitUntilShown(const ConsoleClient& client, ProtocolClient& recorder)
{
    WaitUntil("the log at the console", [&] {
        recorder.Ask(kKeepaliveReq);
        return client.HasInput();
    });
}

TEST_F(Console, ShowsEverythingToOneClientAloneUntilItLeaves)
{
    ProtocolClient recorder;
    recorder.Ask(kKeepaliveReq);
    media->WaitForQueries(); // by now all of the server's threads run
    const size_t descriptors = server->CountEntries("fd");
    ConsoleClient first;
    WaitUntilShown(first, recorder);
    ConsoleClient second;
    const int logged = server->CountLog(kTrace);
    first.Type("reboot\n");
    recorder.Ask(kKeepaliveReq);
    recorder.Send(9999); // is shown on standard output
    first.WaitFor(kTrace);
    first.WaitFor("BYTE_PRINT \n0xFF 0x01 0x00");
    EXPECT_FALSE(second.HasInput());
    EXPECT_EQ(server->CountLog(kTrace), logged);

    first.Close();
    server->WaitForOutput("SendRecvSocketThread "); // says so where it said so before
    WaitUntilShown(second, recorder);
    second.Close();
    server->WaitForOutput(": Command disconnect\n", 2);
    const int before = server->CountLog(kTrace);
    recorder.Ask(kKeepaliveReq);
    EXPECT_EQ(server->CountLog(kTrace), before + 1);
    recorder.Send(9999);
    server->WaitForOutput("BYTE_PRINT \n0xFF 0x01 0x00");
    EXPECT_EQ(server->CountEntries("fd"), descriptors);
}

TEST_F(Console, OneThatTakesNothingStallsNobodyAndIsCutOff)
{
    using std::chrono::seconds;
    ProtocolClient noisy, recorder;
    const ConsoleClient stuck(/* receiveBuffer= */ 4096);
    WaitUntilShown(stuck, recorder);
    const int logged = server->CountLog(kTrace);
    const auto begin = Clock::now();
    const std::string body(10000, 'x');
    for (int i = 0; i < 250; i++) { // each shows 60 KiB: more in all than its socket may ever hold
        noisy.Send(9999, body);
        recorder.Ask(kKeepaliveReq);
    }
    while (server->CountLog(kTrace) == logged) {
        ASSERT_LT(Clock::now(), begin + Patience(seconds(120))) << "a stuck client is kept";
        recorder.Ask(kKeepaliveReq);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_GE(Clock::now() - begin, seconds(29));
    recorder.Send(9999);
    server->WaitForOutput("BYTE_PRINT \n0xFF 0x01 0x00"); // standard output, too, is as it was
}

} // namespace
