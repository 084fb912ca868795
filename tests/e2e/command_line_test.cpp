// The entry: arguments, the banner, and the sign of life for the keeper.

#include <sys/shm.h>

#include <ctime>

#include "common/keeper_block.h"
#include "tests/e2e/harness/camera_test.h"

namespace {

using CommandLine = Camera;

TEST_F(CommandLine, WhatCannotBeUsedEndsTheServerWithItsUsage)
{
    const std::vector<std::string> rows[] = {
        {"-p", "0"}, {"-p", "65536"}, {"-p", "-1"},         {"-p", "port"},
        {"-p"},      {"-t"},          {"-p", "9000", "-I"}, {"-i", "wlan0", "-p", "70000"},
    };
    for (const auto& arguments : rows) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        server.emplace(arguments);
        EXPECT_EQ(server->WaitForExit(), 0);
        EXPECT_EQ(server->CountLog("[Error]: Usage: " + std::string(ServerProcess::Path()) +
                                   " [-p server port] [-i net interface like \"eth0\"...]\n"),
                  1);
        EXPECT_EQ(server->CountLog("Velmora protocol starting"), 0);
        server->ExpectHealthy();
    }
}

TEST_F(CommandLine, TheBannerNamesInterfaceAndPort)
{
    const std::string longName(80, 'i');
    const struct {
        std::vector<std::string> arguments;
        std::string device;
        std::string port;
    } rows[] = {
        {{}, "eth0", "9000"},
        {{"-P", "9000"}, "eth0", "9000"},
        {{"stray", "-i", "wlan0", "--p", "-p", "65535"}, "wlan0", "65535"},
        {{"-I", longName, "-T", "12", "-p", "1"}, longName.substr(0, 63), "1"},
    };
    const std::string line(49, '-');
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        StartServer(row.arguments);
        // In a pipe at once: nothing of it waits in a buffer.
        server->WaitForOutput("\n\n" + line +
                              "\nVelmora_server is running...\nConsole: \tenable\nDevname: \t" + row.device +
                              "\nServer port: \t" + row.port + "\n" + line + "\n\n\n");
        server->WaitForLog("Version: \tV1.0 Build ");
        EXPECT_EQ(server->CountLog("dev = wlan0\n"), row.device == "wlan0" ? 1 : 0);
        ProtocolClient client(static_cast<uint16_t>(std::stoi(row.port)));
        EXPECT_EQ(client.Login(), 1U);
        server->ExpectHealthy();
        server.reset();
    }
}

TEST_F(CommandLine, TheLogFollowsTheOrderOfTheStart)
{
    StartServer();
    media->WaitForQueries(kQueryStart, kSecondStream, 1);
    const std::string log = server->Log();
    size_t at = 0;
    for (const char* line :
         {"PROCESS_VELMORA\n", "gSysProcId 7\n", "shared memory size 147456\n", "VelmoraGetServerPort",
          "Velmora protocol starting...\n", "Version: \t", "Now, starting the webservice thread...\n",
          "VelmoraServerStart", ": port = 9000\n", "StartVideoProcess", "create tcp connect success "}) {
        const size_t found = log.find(line, at);
        EXPECT_NE(found, std::string::npos) << line;
        at = found == std::string::npos ? at : found;
    }
}

TEST_F(CommandLine, TheKeeperSeesThatTheServerLives)
{
    // The keeper has its block before the server comes, and slots of others.
    const int id = IpcShareMemInit(kKeeperKey, kKeeperBlockBytes, kKeeperBlockMode);
    const ShmAttachment block(id);
    ASSERT_TRUE(block);
    memset(block.get(), 0, kKeeperBlockBytes);
    StoreLe<uint32_t>(block.get() + 15 * sizeof(KeeperSlot), 4711);
    StoreLe<uint32_t>(block.get() + 17 * sizeof(KeeperSlot), 4712);
    const auto seen = [&] { return LoadLe<uint32_t>(block.get() + kKeeperSlotVelmora * sizeof(KeeperSlot)); };
    const auto begin = static_cast<uint32_t>(time(nullptr));
    StartServer();
    WaitUntil("the first sign of life", [&] { return seen() >= begin; });
    const uint32_t first = seen();
    WaitUntil("the next one", [&] { return seen() > first; });
    EXPECT_LE(seen(), time(nullptr));
    EXPECT_EQ(LoadLe<uint32_t>(block.get() + 15 * sizeof(KeeperSlot)), 4711U);
    EXPECT_EQ(LoadLe<uint32_t>(block.get() + 17 * sizeof(KeeperSlot)), 4712U);
    shmctl(id, IPC_RMID, nullptr);
}

} // namespace
