#include "media/monitor_requests.h"

#include "tests/exchange.h"
#include "tests/media/fakes.h"

namespace {

void Claim(const std::string& body, int32_t type)
{
    SCOPED_TRACE(body);
    const TestConnection media;
    const Answer answer = ExchangeOn(media.fd(), ProcessMonitorClaim, MakeRequest(1413, body, 7));
    EXPECT_EQ(answer.body, R"({"Name":"OPMonitor","Ret":100,"SessionID":"0x00000007"})");
    EXPECT_EQ(answer.header.usMessageId, 1414);
    EXPECT_EQ(answer.header.ulSessionId, 7U);
    EXPECT_EQ(GetSessionIdByFd(media.fd()), 7U);
    EXPECT_EQ(GetFdType(media.fd()), type);
}

TEST(MonitorClaim, JoinsTheSessionAndTakesTheStream)
{
    Claim(R"({"OPMonitor":{"Action":"Claim","Parameter":{"Channel":0,"StreamType":"Main"}}})", 1);
    Claim(R"({"opmonitor":{"PARAMETER":{"streamtype":"extra1"}}})", 2);
    Claim(R"({"OPMonitor":{"Parameter":{"StreamType":"Extra"}}})", 2);
    Claim(R"({"OPMonitor":{"Parameter":{"StreamType":"Extra2"}}})", 3);
    for (const char* body :
         {R"({"OPMonitor":{"Parameter":{"StreamType":"Main2"}}})",
          R"({"OPMonitor":{"Parameter":{"StreamType":1}}})", R"({"OPMonitor":{"StreamType":"Main"}})",
          R"({"OPMonitor":"Main"})", R"({"Parameter":{"StreamType":"Main"}})", R"({"OPMonitor":)", ""})
        Claim(body, -1);
}

void Act(const std::string& body, uint32_t flow, bool flagWasSet, bool flagIsSet)
{
    SCOPED_TRACE(body);
    const TestConnection command(9, 0), main(9, 1), extra(9, 2), third(9, 3), stranger(8, 1);
    for (const TestConnection* media : {&main, &extra, &third, &stranger})
        SetSendVideoFlag(media->fd(), 1 - flow);
    flagWasSet ? SetMonitorStartFlag() : ClearMonitorStartFlag();
    const Answer answer = ExchangeOn(command.fd(), ProcessMonitorReq, MakeRequest(1410, body, 1));
    EXPECT_EQ(answer.body, R"({"Name":"OPMonitor","Ret":100,"SessionID":"0x00000009"})");
    EXPECT_EQ(answer.header.usMessageId, 1411);
    for (const TestConnection* media : {&main, &extra})
        EXPECT_EQ(GetSendVideoFlag(media->fd()), flow);
    EXPECT_EQ(GetSendVideoFlag(third.fd()), 0U);
    EXPECT_EQ(GetSendVideoFlag(stranger.fd()), 1 - flow);
    EXPECT_EQ(TakeMonitorStartFlag(), flagIsSet);
    EXPECT_FALSE(TakeMonitorStartFlag());
}

TEST(MonitorRequest, SwitchesTheMediaConnectionsOfTheSession)
{
    FakeLog log;
    Act(R"({"OPMonitor":{"Action":"START","Parameter":{"Channel":2,"StreamType":"Extra1"}}})", 1, false,
        true);
    EXPECT_EQ(log.Count("Process ProtocolAccess.c ProcessMonitorReq "), 1);
    EXPECT_EQ(log.Count("ProcessMonitorReq N: playcmd = 0 channel = 2 fd_type = 2\n"), 1);
    Act(R"({"OPMonitor":{"Action":"stop","Parameter":{}}})", 0, true, false);
    EXPECT_EQ(log.Count("ProcessMonitorReq N: playcmd = 1 channel = -1 fd_type = 1\n"), 1);
    for (const char* body : {R"({"OPMonitor":{"Action":"Pause"}})", R"({"OPMonitor":{"Action":3}})",
                             R"({"Action":"Stop"})", R"({"OPMonitor":{"Action":"Stop")", ""})
        for (const bool flag : {false, true})
            Act(body, 1, flag, flag);
}

} // namespace
