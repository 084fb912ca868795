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

    const auto written = [&](std::initializer_list<const char*> texts) {
        std::string found;
        std::istringstream lines(output.Lines());
        for (std::string line; std::getline(lines, line);)
            for (const char* text : texts)
                if (const size_t at = line.find(text); at != std::string::npos)
                    found += line.substr(at) + "\n";
        return found;
    };
    const std::string end = "VLMFdDetecter N: Thread end!\n"; // no thread is left behind
    EXPECT_TRUE(WaitUntil([&] { return written({"VLMFdDetecter N: Thread end!"}) == end + end; }));
    const std::string rest = "StartVideoProcess N: start!\nStopNetwork N: StopNetwork!\n"
                             "StopVideoProcess N: SendAVStreamThread stop!\n";
    EXPECT_EQ(
        written({"VelmoraServerStart N: port", "StartVideoProcess N", "StopNetwork N", "StopVideoProcess N"}),
        "VelmoraServerStart N: port = 9000\n" + rest + "VelmoraServerStart N: port = 9003\n" + rest);
}

} // namespace
