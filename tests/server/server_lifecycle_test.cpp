#include "server/server_lifecycle.h"

#include <regex>

#include "config/server_identity.h"
#include "server/ProtocolAccess.h"
#include "server/network_state.h"
#include "tests/captured_output.h"

namespace {

// One test, because the banner is shown once per process.
TEST(ServerLifecycle, ShowsTheBannerOnceThenStartsAndStopsEverything)
{
    const CapturedOutput output({STDOUT_FILENO, STDERR_FILENO});
    VelmoraServerStop(); // nothing to stop
    ShowBanner(9000, "wlan0");
    ShowBanner(9001, "eth0");
    EXPECT_NE(output.Text().find("Devname: \twlan0\nServer port: \t9000\n"), std::string::npos);
    VelmoraServerStop();
    EXPECT_EQ(VelmoraServerStart(0), 0); // on the banner's port
    EXPECT_EQ(VelmoraServerStart(9002), 0);
    EXPECT_EQ(g_port_server, 9000);
    EXPECT_EQ(GetMessageCallback(), ProtocolNetworkProcess);
    EXPECT_EQ(VelmoraServerRestart(9003), 0);
    EXPECT_EQ(g_port_server, 9003);
    VelmoraServerStop();
    VelmoraServerStop();

    // The steps, without the lines of the threads, which come when they come.
    std::string steps;
    const std::string lines = output.Lines();
    const std::regex step("(VelmoraServerStart N: port = [0-9]+|(Start|Stop)(VideoProcess|Network)) ?");
    for (std::sregex_iterator at(lines.begin(), lines.end(), step), end; at != end; ++at)
        steps += at->str(1) + "\n";
    const std::string started = "\nStartVideoProcess\n";
    const std::string stopped = "StopNetwork\nStopNetwork\nStopVideoProcess\n"; // named twice in its line
    EXPECT_EQ(steps, "VelmoraServerStart N: port = 9000" + started + stopped +
                         "VelmoraServerStart N: port = 9003" + started + stopped);
    EXPECT_TRUE(WaitUntil([&] { // leaves no thread behind
        return std::regex_search(output.Lines(), std::regex("VLMFdDetecter N: T[^]*VLMFdDetecter N: T"));
    }));
}

} // namespace
