#include "server/server_lifecycle.h"

#include <sstream>
#include <string>

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
    int endedDetectors = 0;
    const auto read = [&] {
        steps.clear();
        endedDetectors = 0;
        std::istringstream lines(output.Lines());
        for (std::string line; std::getline(lines, line);) {
            for (const char* step :
                 {"VelmoraServerStart N: port", "StartVideoProcess N", "StopNetwork N", "StopVideoProcess N"})
                if (const size_t at = line.find(step); at != std::string::npos)
                    steps += line.substr(at) + "\n";
            endedDetectors += line.find("VLMFdDetecter N: Thread end!") != std::string::npos ? 1 : 0;
        }
    };
    EXPECT_TRUE(WaitUntil([&] { // leaves no thread behind
        read();
        return endedDetectors == 2;
    }));
    const std::string rest = "StartVideoProcess N: start!\nStopNetwork N: StopNetwork!\n"
                             "StopVideoProcess N: SendAVStreamThread stop!\n";
    EXPECT_EQ(steps,
              "VelmoraServerStart N: port = 9000\n" + rest + "VelmoraServerStart N: port = 9003\n" + rest);
}

} // namespace
