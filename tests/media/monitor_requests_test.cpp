#include "media/monitor_requests.h"

#include "tests/media/fakes.h"

namespace {

// Answers a request as text: id, session of the header, and the body.
std::string Exchange(RequestHandler* handler, int fd, uint32_t sessionId, const std::string& body)
{
    MessageHeader header{};
    header.ulSessionId = sessionId;
    header.ulSeqNum = 0x12345678;
    std::vector<uint8_t> request(kReadBytes), reply(kReplyBytes);
    WriteHeader(request.data(), header);
    memcpy(request.data() + kHeaderBytes, body.data(), body.size());
    int length = -1;
    EXPECT_EQ(
        handler(fd, request.data(), static_cast<int>(kHeaderBytes + body.size()), reply.data(), &length), 0);
    const MessageHeader answer = ReadHeader(reply.data(), reply.size());
    EXPECT_EQ(answer.ulBodyLength + kHeaderBytes, static_cast<size_t>(length));
    EXPECT_EQ(answer.ulSeqNum, 0x12345678U);
    return std::to_string(answer.usMessageId) + " " + std::to_string(answer.ulSessionId) + " " +
           std::string(reply.begin() + kHeaderBytes, reply.begin() + length);
}

void Claim(const std::string& body, int32_t type)
{
    SCOPED_TRACE(body);
    const Watcher media(0, 0);
    EXPECT_EQ(Exchange(ProcessMonitorClaim, media.fd, 7, body),
              R"(1414 7 {"Name":"OPMonitor","Ret":100,"SessionID":"0x00000007"})");
    EXPECT_EQ(GetSessionIdByFd(media.fd), 7U);
    EXPECT_EQ(GetFdType(media.fd), type);
}

TEST(MonitorClaim, JoinsTheSessionAndTakesTheStream)
{
    Claim(R"({"OPMonitor":{"Action":"Claim","Parameter":{"Channel":0,"StreamType":"Main"}}})", 1);
    Claim(R"({"opmonitor":{"PARAMETER":{"streamtype":"extra1"}}})", 2);
    Claim(R"({"OPMonitor":{"Parameter":{"StreamType":"Extra"}}})", 2);
    Claim(R"({"OPMonitor":{"Parameter":{"StreamType":"Extra2"}}})", 3);
    for (const char* body :
         {R"({"OPMonitor":{"Parameter":{"StreamType":"Main2"}}})",
          R"({"OPMonitor":{"Parameter":{"StreamType":1}}})", R"({"OPMonitor":{"Parameter":{}}})",
          R"({"OPMonitor":{"StreamType":"Main"}})", R"({"OPMonitor":"Main"})",
          R"({"Parameter":{"StreamType":"Main"}})", R"({"OPMonitor":)", ""})
        Claim(body, -1);
}

void Act(const std::string& body, uint32_t flow, bool flagWasSet, bool flagIsSet)
{
    SCOPED_TRACE(body);
    const Watcher command(9, 0), main(9, 1), extra(9, 2), third(9, 3), stranger(8, 1);
    SetSendVideoFlag(command.fd, 1 - flow);
    flagWasSet ? SetMonitorStartFlag() : ClearMonitorStartFlag();
    EXPECT_EQ(Exchange(ProcessMonitorReq, command.fd, 1, body),
              R"(1411 9 {"Name":"OPMonitor","Ret":100,"SessionID":"0x00000009"})");
    EXPECT_EQ(GetSendVideoFlag(main.fd), flow);
    EXPECT_EQ(GetSendVideoFlag(extra.fd), flow);
    EXPECT_EQ(GetSendVideoFlag(third.fd), 0U);
    EXPECT_EQ(GetSendVideoFlag(stranger.fd), 1U);
    EXPECT_EQ(TakeMonitorStartFlag(), flagIsSet);
    EXPECT_FALSE(TakeMonitorStartFlag());
}

TEST(MonitorRequest, SwitchesTheMediaConnectionsOfTheSession)
{
    FakeLog log;
    Act(R"({"OPMonitor":{"Action":"START","Parameter":{"Channel":2,"StreamType":"Extra1"}}})", 1, false,
        true);
    EXPECT_EQ(log.lines[0], "Process ProtocolAccess.c ProcessMonitorReq #\n");
    EXPECT_EQ(log.Count("ProcessMonitorReq #: playcmd = 0 channel = 2 fd_type = 2\n"), 1);
    Act(R"({"OPMonitor":{"Action":"stop","Parameter":{}}})", 0, true, false);
    EXPECT_EQ(log.Count("ProcessMonitorReq #: playcmd = 1 channel = -1 fd_type = 1\n"), 1);
    for (const char* body :
         {R"({"OPMonitor":{"Action":"Pause"}})", R"({"OPMonitor":{"Action":3}})", R"({"OPMonitor":{}})",
          R"({"Action":"Stop"})", R"({"OPMonitor":{"Action":"Stop")", ""})
        for (const bool flag : {false, true})
            Act(body, 1, flag, flag);
}

} // namespace
