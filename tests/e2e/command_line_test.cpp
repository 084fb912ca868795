// The entry: arguments, the banner, and the sign of life for the keeper.

#include <sys/shm.h>

#include <ctime>

#include "common/keeper_block.h"
#include "tests/e2e/harness/camera_test.h"

namespace {

using CommandLine = Camera;

TEST_F(CommandLine, WhatCannotBeUsedEndsTheServerWithItsUsage)
{
    for (const char* port : {"0", "65536", "port"}) {
        SCOPED_TRACE(port);
        server.emplace(std::vector<std::string>{"-p", port});
        EXPECT_EQ(server->WaitForExit(), 0);
        EXPECT_EQ(server->CountLog("[Error]: Usage: " + std::string(ServerProcess::Path()) +
                                   " [-p server port] [-i net interface like \"eth0\"...]\n"),
                  1);
        EXPECT_EQ(server->CountLog("Velmora protocol starting"), 0);
        server->ExpectHealthy();
    }
}

TEST_F(CommandLine, TheBannerComesAtOnceAndTheKeeperSeesThatTheServerLives)
{
    const auto begin = static_cast<uint32_t>(time(nullptr));
    StartServer({"stray", "-i", "wlan0", "-p", "65535"});
    const std::string line(49, '-');
    server->WaitForOutput("\n\n" + line +
                          "\nVelmora_server is running...\nConsole: \tenable\nDevname: \twlan0"
                          "\nServer port: \t65535\n" +
                          line + "\n\n\n");
    server->WaitForLog("Version: \tV1.0 Build ");
    ProtocolClient client(65535);
    EXPECT_EQ(client.Login(), 1U);

    const ShmAttachment block(IpcShareMemInit(kKeeperKey, kKeeperBlockBytes, kKeeperBlockMode));
    ASSERT_TRUE(block);
    const auto seen = [&] { return LoadLe<uint32_t>(block.get() + kKeeperSlotVelmora * sizeof(KeeperSlot)); };
    for (const uint32_t least : {begin, begin + 2})
        WaitUntil("a sign of life", [&] { return seen() >= least; });
    EXPECT_LE(seen(), time(nullptr));
}

} // namespace
