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
int __real_close(int fd); // NOLINT(bugprone-reserved-identifier): the linker's name
int __wrap_close(int fd); // NOLINT(bugprone-reserved-identifier)
int __wrap_close(int fd)  // NOLINT(bugprone-reserved-identifier)
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

int OpenSocket()
{
    return socket(AF_INET, SOCK_STREAM, 0);
}

TEST(ConnectionTable, EntersASocketWithTheFieldsOfANewConnection)
{
    const int fd = OpenSocket();
    const uint32_t before = GetUptime();
    ASSERT_EQ(AddFd(fd, "a text that is longer than an address", 0x3412, 7), 0);
    const ConnectionHold hold(0);
    const ConnectionEntry& entry = hold.entry();
    EXPECT_EQ(entry.in_use, 1U);
    EXPECT_EQ(entry.fd, fd);
    EXPECT_STREQ(entry.ip, "a text that is longer than an a"); // 31 characters and the zero
    EXPECT_EQ(entry.port, 0x3412);
    EXPECT_EQ(entry.sessionid, 7U);
    EXPECT_EQ(entry.fd_type, -1);
    EXPECT_EQ(entry.seqnum + entry.send_video + entry.alarm_on, 0U);
    EXPECT_GE(entry.last_active, before);
    RemoveFd(fd);
}

TEST(ConnectionTable, SixteenConnectionsFitAndTheLowestFreeSlotIsTakenFirst)
{
    std::vector<int> fds;
    for (int i = 0; i < kMaxConnections; ++i) {
        fds.push_back(OpenSocket());
        EXPECT_EQ(AddFd(fds.back(), "192.0.2.1", 0, 0), 0);
    }
    const UniqueFd refused(OpenSocket());
    EXPECT_EQ(AddFd(refused.get(), "192.0.2.1", 0, 0), -5);
    EXPECT_TRUE(IsOpen(refused.get()));
    EXPECT_EQ(GetConnectCount(), 16);
    EXPECT_EQ(GetMaxFd(), fds.back());

    const CapturedOutput log;
    RemoveFd(fds[9]);
    RemoveFd(fds[4]);
    EXPECT_EQ(log.Lines(), "[Trace]: RemoveFd N: Remove 9 fd " + std::to_string(fds[9]) +
                               "\n[Trace]: RemoveFd N: Remove 4 fd " + std::to_string(fds[4]) + "\n");
    EXPECT_EQ(GetConnectCount(), 14);
    EXPECT_EQ(AddFd(refused.get(), "192.0.2.1", 0, 0), 0);
    EXPECT_EQ(ConnectionHold(4).entry().fd, refused.get());
    EXPECT_FALSE(ConnectionHold(9));
    for (const int fd : fds)
        RemoveFd(fd);
    RemoveFd(refused.get());
    EXPECT_EQ(GetMaxFd(), -1);
}

TEST(ConnectionTable, AnUnknownSocketHasNoFieldsAndChangesNothing)
{
    const TestConnection bystander(3, kFdCommand);
    const CapturedOutput log;
    for (const int unknown : {0, -1, 999}) { // 0 is what stands in free slots
        SCOPED_TRACE(unknown);
        SetSessionIdByFd(unknown, 9);
        SetFdType(unknown, kFdMainStream);
        SetAlarmFlag(unknown, 1);
        RefreshLastActive(unknown);
        EXPECT_EQ(RemoveFd(unknown), 0);
        EXPECT_EQ(GetSessionIdByFd(unknown), 0U);
        EXPECT_EQ(GetFdType(unknown), -1);
        EXPECT_EQ(GetAlarmFlag(unknown), -1);
        EXPECT_EQ(GetSendVideoFlag(unknown), 0U);
        EXPECT_EQ(GetNextSeqnum(unknown), 0U);
    }
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(GetConnectCount(), 1);
    EXPECT_EQ(IsAlarmWanted(), 0);
    EXPECT_EQ(GetSessionIdByFd(bystander.fd()), 3U);
}

TEST(ConnectionTable, SequenceNumbersAndAlarmFlagBelongToTheirConnection)
{
    const TestConnection first;
    const TestConnection second;
    for (const uint32_t expected : {0U, 1U, 2U})
        EXPECT_EQ(GetNextSeqnum(first.fd()), expected);
    EXPECT_EQ(GetNextSeqnum(second.fd()), 0U);
    SetAlarmFlag(second.fd(), 1);
    EXPECT_EQ(GetAlarmFlag(first.fd()), 0);
    EXPECT_EQ(GetAlarmFlag(second.fd()), 1);
    EXPECT_EQ(IsAlarmWanted(), 1);
    SetAlarmFlag(second.fd(), 0);
    EXPECT_EQ(IsAlarmWanted(), 0);
}

TEST(ConnectionTable, TheSendFlagReachesTheMainAndExtraConnectionsOfTheSessionOnly)
{
    const TestConnection command(5, kFdCommand);
    const TestConnection main(5, kFdMainStream);
    const TestConnection extra(5, kFdExtraStream);
    const TestConnection extra2(5, kFdExtra2Stream);
    const TestConnection stranger(6, kFdMainStream);
    const TestConnection unknown(0, kFdMainStream);
    EXPECT_EQ(IsStreamWanted(0), 0);

    SetSendVideoFlag(command.fd(), 1);
    EXPECT_EQ(GetSendVideoFlag(main.fd()) + GetSendVideoFlag(extra.fd()), 2U);
    for (const TestConnection* other : {&command, &extra2, &stranger, &unknown})
        EXPECT_EQ(GetSendVideoFlag(other->fd()), 0U);
    const int wanted[] = {1, 1, 0, 0, -1, -1};
    for (uint32_t stream = 0; stream < std::size(wanted); ++stream)
        EXPECT_EQ(IsStreamWanted(stream), wanted[stream]) << stream;

    SetSendVideoFlag(extra.fd(), 0);
    EXPECT_EQ(IsStreamWanted(0) + IsStreamWanted(1), 0);

    const CapturedOutput log;
    SetSendVideoFlag(unknown.fd(), 1);
    SetSendVideoFlag(999, 1);
    EXPECT_EQ(GetSendVideoFlag(unknown.fd()), 0U);
    EXPECT_EQ(log.Lines(), "[Trace]: SetSendVideoFlag N: Can't find sessionid\n"
                           "[Trace]: SetSendVideoFlag N: Can't find sessionid\n");
}

TEST(ConnectionHold, KeepsTheNumberUntilTheLastHolderLetsGoAndClosesItOnce)
{
    TestConnection connection;
    const int fd = connection.fd();
    const int closesBefore = g_closes[static_cast<size_t>(fd)];
    ConnectionHold first(0);
    ConnectionHold second(0);
    EXPECT_TRUE(first.IsLive());

    RemoveFd(fd);
    char byte;
    EXPECT_EQ(recv(connection.peer(), &byte, 1, 0), 0); // the peer learns of it at once
    EXPECT_FALSE(first.IsLive());
    EXPECT_EQ(GetFdType(fd), -1);
    EXPECT_FALSE(ConnectionHold(0));
    const TestConnection next; // takes the freed slot, under another number
    EXPECT_NE(next.fd(), fd);
    EXPECT_EQ(ConnectionHold(0).entry().fd, next.fd());

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
    // Seven holders with all slots each is the most that the server has; further holds are refused.
    std::vector<int> fds;
    std::vector<std::array<ConnectionHold, kMaxConnections>> holders(7);
    for (auto& holder : holders) {
        for (int slot = 0; slot < kMaxConnections; ++slot) {
            fds.push_back(OpenSocket());
            ASSERT_EQ(AddFd(fds.back(), "192.0.2.1", 0, 0), 0);
            ASSERT_TRUE(holder[static_cast<size_t>(slot)].Take(slot));
        }
        for (size_t i = fds.size() - kMaxConnections; i < fds.size(); ++i)
            RemoveFd(fds[i]);
    }
    {
        const TestConnection late;
        EXPECT_FALSE(ConnectionHold(0));
    }
    for (const int fd : fds)
        EXPECT_TRUE(IsOpen(fd));
    holders.clear();
    for (const int fd : fds)
        EXPECT_FALSE(IsOpen(fd));
}

TEST(ConnectionHold, HeldNumbersStayOpenWhileOtherThreadsAddAndRemove)
{
    std::atomic<bool> isDone{false};
    std::atomic<int> lost{0};
    const auto watch = [&] {
        while (!isDone)
            for (int slot = 0; slot < kMaxConnections; ++slot)
                if (const ConnectionHold hold(slot); hold && !IsOpen(hold.entry().fd))
                    ++lost;
    };
    std::thread watchers[] = {std::thread(watch), std::thread(watch)};
    for (int round = 0; round < 500; ++round) {
        const TestConnection one;
        const TestConnection two;
        RemoveFd(one.fd());
    }
    isDone = true;
    for (std::thread& watcher : watchers)
        watcher.join();
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(GetConnectCount(), 0);
}

} // namespace
