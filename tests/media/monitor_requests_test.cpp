#include "media/monitor_requests.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "protocol/connection_table.h"
#include "tests/media/fakes.h"

namespace {

// Answers a request as text: id, sequence number, session of the header, and the body.
std::string Exchange(RequestHandler* handler, int fd, uint32_t sessionId, const std::string& body)
{
    MessageHeader header{};
    header.ulSessionId = sessionId;
    header.ulSeqNum = 0x12345678;
    std::vector<uint8_t> request(kReadBytes), reply(kReplyBytes);
    WriteHeader(request.data(), header);
    memcpy(request.data() + kHeaderBytes, body.data(), body.size());
    int replyLen = -1;
    EXPECT_EQ(
        handler(fd, request.data(), static_cast<int>(kHeaderBytes + body.size()), reply.data(), &replyLen),
        0);
    const MessageHeader answer = ReadHeader(reply.data(), reply.size());
    EXPECT_EQ(answer.ulBodyLength + kHeaderBytes, static_cast<size_t>(replyLen));
    EXPECT_EQ(answer.ulSeqNum, 0x12345678U);
    return std::to_string(answer.usMessageId) + " " + std::to_string(answer.ulSessionId) + " " +
           std::string(reinterpret_cast<const char*>(reply.data()) + kHeaderBytes, answer.ulBodyLength);
}

std::string Claim(const std::string& streamType)
{
    return R"({"Name":"OPMonitor","OPMonitor":{"Action":"Claim","Parameter":{"Channel":0,"StreamType":)" +
           streamType + "}}}";
}

const struct ClaimCase {
    const char* name;
    std::string body;
    int32_t type;
} kClaimCases[] = {
    {"main", Claim(R"("Main")"), 1},
    {"extra", Claim(R"("Extra")"), 2},
    {"lower case", Claim(R"("extra1")"), 2},
    {"third", Claim(R"("Extra2")"), 3},
    {"longer name", Claim(R"("Main2")"), -1},
    {"no text", Claim("1"), -1},
    {"no stream type", R"({"OPMonitor":{"Parameter":{}}})", -1},
    {"keys in any case", R"({"opmonitor":{"PARAMETER":{"streamtype":"MAIN"}}})", 1},
    {"no parameter", R"({"OPMonitor":{"StreamType":"Main"}})", -1},
    {"monitor is no object", R"({"OPMonitor":"Main"})", -1},
    {"no monitor", R"({"Parameter":{"StreamType":"Main"}})", -1},
    {"not JSON", R"({"OPMonitor":)", -1},
    {"empty", "", -1},
};

TEST(MonitorClaim, JoinsTheSessionAndTakesTheStream)
{
    for (const ClaimCase& c : kClaimCases) {
        SCOPED_TRACE(c.name);
        const Watcher media(0, 0);
        EXPECT_EQ(Exchange(ProcessMonitorClaim, media.fd(), 7, c.body),
                  R"(1414 7 {"Name":"OPMonitor","Ret":100,"SessionID":"0x00000007"})");
        EXPECT_EQ(GetSessionIdByFd(media.fd()), 7U);
        EXPECT_EQ(GetFdType(media.fd()), c.type);
    }
}

std::string Action(const std::string& action)
{
    return R"({"OPMonitor":{"Action":)" + action + R"(,"Parameter":{"Channel":2,"StreamType":"Extra1"}}})";
}

const struct ActionCase {
    const char* name;
    std::string body;
    uint32_t flow;
    bool flagWasSet, flagIsSet;
} kActionCases[] = {
    {"start", Action(R"("Start")"), 1, false, true},
    {"start in upper case", Action(R"("START")"), 1, false, true},
    {"stop", Action(R"("Stop")"), 0, true, false},
    {"stop in lower case", Action(R"("stop")"), 0, true, false},
    {"pause leaves the flag set", Action(R"("Pause")"), 1, true, true},
    {"pause leaves the flag clear", Action(R"("Pause")"), 1, false, false},
    {"action is no text", Action("3"), 1, false, false},
    {"no action", R"({"OPMonitor":{}})", 1, true, true},
    {"no monitor", R"({"Action":"Stop"})", 1, true, true},
    {"not JSON", R"({"OPMonitor":{"Action":"Stop")", 1, false, false},
    {"empty", "", 1, false, false},
};

TEST(MonitorRequest, SwitchesTheMediaConnectionsOfTheSession)
{
    for (const ActionCase& c : kActionCases) {
        SCOPED_TRACE(c.name);
        const Watcher command(9, 0), main(9, 1), extra(9, 2), third(9, 3), stranger(8, 1);
        SetSendVideoFlag(command.fd(), 1 - c.flow);
        c.flagWasSet ? SetMonitorStartFlag() : ClearMonitorStartFlag();
        FakeLog log;
        EXPECT_EQ(Exchange(ProcessMonitorReq, command.fd(), 1, c.body),
                  R"(1411 9 {"Name":"OPMonitor","Ret":100,"SessionID":"0x00000009"})");
        EXPECT_EQ(GetSendVideoFlag(main.fd()), c.flow);
        EXPECT_EQ(GetSendVideoFlag(extra.fd()), c.flow);
        EXPECT_EQ(GetSendVideoFlag(third.fd()), 0U);
        EXPECT_EQ(GetSendVideoFlag(command.fd()), 0U);
        EXPECT_EQ(GetSendVideoFlag(stranger.fd()), 1U);
        EXPECT_EQ(TakeMonitorStartFlag(), c.flagIsSet);
        EXPECT_FALSE(TakeMonitorStartFlag());
        EXPECT_EQ(log.lines[0], "Process ProtocolAccess.c ProcessMonitorReq #\n");
        if (c.body.find("Channel") != std::string::npos) {
            const std::string playcmd = c.flow == 1 ? "0" : "1";
            EXPECT_EQ(log.Count("ProcessMonitorReq #: playcmd = " + playcmd + " channel = 2 fd_type = 2\n"),
                      1);
        }
    }
}

TEST(MonitorRequest, WithoutASessionNothingIsSwitched)
{
    const Watcher command(0, 0), media(3, 1);
    FakeLog log;
    Exchange(ProcessMonitorReq, command.fd(), 3, Action(R"("Stop")"));
    EXPECT_EQ(GetSendVideoFlag(media.fd()), 1U);
    EXPECT_EQ(log.Count("SetSendVideoFlag #: Can't find sessionid\n"), 1);
}

} // namespace
