#include "server/server_lifecycle.h"

#include <cstring>

#include "config/server_identity.h"
#include "server/ProtocolAccess.h"
#include "server/network_state.h"
#include "tests/captured_output.h"
#include "tests/server/fakes.h"

namespace {

using Calls = std::vector<std::string>;

// One test, because the banner is shown once per process.
TEST(ServerLifecycle, ShowsTheBannerOnceThenStartsAndStopsEverything)
{
    setvbuf(stdout, nullptr, _IONBF, 0); // as the program does, so that both streams stay in order
    g_calls.clear();
    const CapturedOutput output({STDOUT_FILENO, STDERR_FILENO});
    VelmoraServerStop();
    EXPECT_EQ(output.Text() + std::to_string(g_calls.size()), "0");

    const std::string hyphens(49, '-');
    ShowBanner(9000, "wlan0");
    ShowBanner(9001, "eth0");
    const std::string banner = output.Text();
    const std::string before = "\n\n" + hyphens + "\nVelmora_server is running...\nConsole: \tenable\n" +
                               "Devname: \twlan0\nServer port: \t9000\nVersion: \tV1.0 Build ";
    const std::string after = "\n" + hyphens + "\n\n\n";
    EXPECT_TRUE(banner.starts_with(before) && banner.ends_with(after)) << banner;
    EXPECT_EQ(banner.size(), before.size() + strlen("Jan  1 2000 00:00:00") + after.size());
    EXPECT_EQ(g_port_server, 9000);

    VelmoraServerStop();                 // not started
    EXPECT_EQ(VelmoraServerStart(0), 0); // on the banner's port
    EXPECT_EQ(VelmoraServerStart(9002), 0);
    EXPECT_EQ(g_port_server, 9000);
    EXPECT_EQ(GetMessageCallback(), ProtocolNetworkProcess);
    EXPECT_EQ(g_calls, Calls{"StartVideoProcess"});
    EXPECT_EQ(VelmoraServerRestart(9003), 0);
    EXPECT_EQ(g_port_server, 9003);
    VelmoraServerStop();
    VelmoraServerStop();
    EXPECT_EQ(g_calls,
              (Calls{"StartVideoProcess", "StopVideoProcess", "StartVideoProcess", "StopVideoProcess"}));

    // The lines of the steps, without those of the threads, which come when they come.
    std::string steps;
    std::istringstream lines(output.Lines());
    for (std::string line; std::getline(lines, line);)
        if (line.find("VelmoraServerStart") != std::string::npos ||
            line.find("StopNetwork") != std::string::npos)
            steps += line + "\n";
    const auto started = [](int port) {
        return "[Trace]: VelmoraServerStart N: port = " + std::to_string(port) + "\n";
    };
    const std::string stopped = "[Trace]: StopNetwork N: StopNetwork!\n";
    EXPECT_EQ(steps, started(9000) + stopped + started(9003) + stopped);

    EXPECT_TRUE(WaitUntil([&] { // leaves no thread behind
        const std::string text = output.Text();
        const size_t first = text.find("VLMFdDetecter");
        return first != std::string::npos && text.find("VLMFdDetecter", first + 1) != std::string::npos;
    }));
}

} // namespace
