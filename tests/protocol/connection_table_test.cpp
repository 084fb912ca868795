#include "protocol/connection_table.h"

#include <array>
#include <atomic>
#include <thread>

#include "common/clock.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

std::array<std::atomic<int>, 1024> g_closes; // close() calls, by number

} // namespace

extern "C" {
int __real_close(int fd);
int __wrap_close(int fd);
int __wrap_close(int fd)
{
    if (fd >= 0 && fd < static_cast<int>(g_closes.size()))
        ++g_closes[static_cast<size_t>(fd)];
    return __real_close(fd);
}
}

namespace {

bool IsOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

// Enters sockets until the table is full.
std::vector<int> FillTable()
{
    std::vector<int> fds;
    do
        fds.push_back(socket(AF_INET, SOCK_STREAM, 0));
    while (AddFd(fds.back(), "a text that is longer than an address", 0x3412, 7) == 0);
    close(fds.back());
    fds.pop_back();
    return fds;
}

TEST(ConnectionTable, SixteenConnectionsFitAndTheLowestFreeSlotIsTakenFirst)
{
    const uint32_t before = GetUptime();
    const std::vector<int> fds = FillTable();
    EXPECT_EQ(GetConnectCount(), 16);
    EXPECT_EQ(GetMaxFd(), fds.back());
    const UniqueFd refused(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(AddFd(refused.get(), "192.0.2.1", 0, 0), -5);
    EXPECT_TRUE(IsOpen(refused.get()));
    SetAlarmFlag(fds[4], 1); // what a slot held is not its next connection's
    GetNextSeqnum(fds[4]);

    const CapturedOutput log;
    RemoveFd(fds[9]);
    RemoveFd(fds[4]);
    EXPECT_EQ(log.Lines(), "[Trace]: RemoveFd N: Remove 9 fd " + std::to_string(fds[9]) +
                               "\n[Trace]: RemoveFd N: Remove 4 fd " + std::to_string(fds[4]) + "\n");
    EXPECT_EQ(GetConnectCount(), 14);
    const std::vector<int> next = FillTable(); // into 4, then 9
    const ConnectionEntry entry = ConnectionHold(4).entry();
    EXPECT_EQ(entry.fd, next[0]);
    EXPECT_STREQ(entry.ip, "a text that is longer than an a"); // 31 characters and the zero
    EXPECT_EQ(entry.port, 0x3412);
    EXPECT_EQ(entry.sessionid, 7U);
    EXPECT_EQ(entry.fd_type, -1);
    EXPECT_EQ(entry.seqnum + entry.send_video + entry.alarm_on, 0U);
    EXPECT_GE(entry.last_active, before);
    for (int slot = 0; slot < kMaxConnections; ++slot)
        RemoveFd(ConnectionHold(slot).entry().fd);
    EXPECT_EQ(GetMaxFd(), -1);
}

TEST(ConnectionTable, FieldsBelongToTheirConnectionAndAnUnknownSocketHasNone)
{
    const TestConnection first;
    const TestConnection bystander(3, kFdCommand);
    for (const uint32_t expected : {0U, 1U, 2U})
        EXPECT_EQ(GetNextSeqnum(first.fd()), expected);
    SetAlarmFlag(first.fd(), 1);
    EXPECT_EQ(GetAlarmFlag(first.fd()), 1);
    for (const int unknown : {0, -1, 999}) { // 0 is what stands in free slots
        SetSessionIdByFd(unknown, 9);
        SetFdType(unknown, kFdMainStream);
        SetAlarmFlag(unknown, 1);
        RefreshLastActive(unknown);
        EXPECT_EQ(RemoveFd(unknown), 0);
        EXPECT_EQ(GetSessionIdByFd(unknown) + GetSendVideoFlag(unknown) + GetNextSeqnum(unknown), 0U);
        EXPECT_EQ(GetFdType(unknown), -1);
        EXPECT_EQ(GetAlarmFlag(unknown), -1);
    }
    EXPECT_EQ(GetConnectCount(), 2);
    EXPECT_EQ(GetSessionIdByFd(bystander.fd()), 3U);
    EXPECT_EQ(GetAlarmFlag(bystander.fd()) + static_cast<int>(GetNextSeqnum(bystander.fd())), 0);
}

TEST(ConnectionTable, TheSendFlagReachesTheMainAndExtraConnectionsOfTheSessionOnly)
{
    const TestConnection command(5, kFdCommand);
    const TestConnection main(5, kFdMainStream);
    const TestConnection extra(5, kFdExtraStream);
    const TestConnection extra2(5, kFdExtra2Stream);
    const TestConnection stranger(6, kFdMainStream);
    const TestConnection unknown(0, kFdMainStream);
    SetSendVideoFlag(command.fd(), 1);
    EXPECT_EQ(GetSendVideoFlag(main.fd()) + GetSendVideoFlag(extra.fd()), 2U);
    for (const TestConnection* other : {&command, &extra2, &stranger, &unknown})
        EXPECT_EQ(GetSendVideoFlag(other->fd()), 0U);
    const int wanted[] = {1, 1, 0, 0, -1};
    for (uint32_t stream = 0; stream < std::size(wanted); ++stream)
        EXPECT_EQ(IsStreamWanted(stream), wanted[stream]) << stream;
    EXPECT_EQ(IsStreamWanted(~0U), -1);
    SetSendVideoFlag(extra.fd(), 0);
    EXPECT_EQ(IsStreamWanted(0) + IsStreamWanted(1), 0);
    SetSendVideoFlag(unknown.fd(), 1);
    EXPECT_EQ(GetSendVideoFlag(unknown.fd()), 0U);
}

TEST(ConnectionHold, KeepsTheNumberUntilTheLastHolderLetsGoAndClosesItOnce)
{
    const TestConnection connection;
    const int fd = connection.fd();
    const int closesBefore = g_closes[static_cast<size_t>(fd)];
    ConnectionHold first(0);
    ConnectionHold second(0);
    EXPECT_TRUE(first.IsLive());
    RemoveFd(fd);
    char byte;
    EXPECT_EQ(recv(connection.peer(), &byte, 1, 0), 0); // the peer learns of it at once
    EXPECT_FALSE(first.IsLive());
    EXPECT_FALSE(ConnectionHold(0));
    const TestConnection next; // takes the freed slot, under another number
    EXPECT_NE(next.fd(), fd);
    first.Release();
    first.Release();
    RemoveFd(fd);
    EXPECT_TRUE(IsOpen(fd));
    second.Release();
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_EQ(g_closes[static_cast<size_t>(fd)], closesBefore + 1);
}

TEST(ConnectionHold, ManyRemovedConnectionsAreKeptAndClosed)
{
    // Eight holders with all slots each is the most that the server has; further holds are refused.
    std::vector<int> fds;
    std::vector<std::array<ConnectionHold, kMaxConnections>> holders(8);
    for (auto& holder : holders) {
        for (const int fd : FillTable())
            fds.push_back(fd);
        for (size_t slot = 0; slot < holder.size(); ++slot)
            EXPECT_TRUE(holder[slot].Take(static_cast<int>(slot)));
        for (const int fd : fds)
            RemoveFd(fd);
    }
    {
        const TestConnection late;
        EXPECT_FALSE(ConnectionHold(0));
    }
    EXPECT_EQ(fds.size(), 8 * 16U);
    EXPECT_TRUE(std::all_of(fds.begin(), fds.end(), IsOpen));
    holders.clear();
    EXPECT_TRUE(std::none_of(fds.begin(), fds.end(), IsOpen));
}

TEST(ConnectionHold, HeldNumbersStayOpenWhileOtherThreadsAddAndRemove)
{
    std::atomic<bool> isDone{false};
    std::atomic<int> lost{0};
    std::thread watcher([&] {
        while (!isDone)
            for (int slot = 0; slot < kMaxConnections; ++slot)
                if (const ConnectionHold hold(slot); hold && !IsOpen(hold.entry().fd))
                    ++lost;
    });
    for (int round = 0; round < 500; ++round)
        RemoveFd(TestConnection().fd());
    isDone = true;
    watcher.join();
    EXPECT_EQ(lost, 0);
}

} // namespace
