#include "server/requests/login_requests.h"

#include <cstdio>

#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

std::string LoginBody(uint32_t session)
{
    char body[200];
    snprintf(body, sizeof body,
             R"({"AliveInterval":20,"ChannelNum":1,"DeviceType":"IPC","ExtraChannel":0,)"
             R"("Ret":100,"SessionID":"0x%08x"})",
             session);
    return body;
}

TEST(Login, EveryLoginGetsTheNextSessionWhateverItsBodySays)
{
    constexpr char kFull[] =
        R"({"EncryptType":"MD5","LoginType":"any","PassWord":"secret","UserName":"admin"})";
    constexpr char kFullLog[] = "[Trace]: ProcessLoginReq N: EncryptType = MD5 LoginType = any "
                                "PassWord = secret UserName = admin \n";
    constexpr char kNothingLog[] = "[Trace]: ProcessLoginReq N: EncryptType = (null) LoginType = (null) "
                                   "PassWord = (null) UserName = (null) \n";
    const struct {
        const char* body;
        const char* log; // about the credentials
    } cases[] = {
        {kFull, kFullLog}, {"{}", kNothingLog}, {R"({"UserName":5})", kNothingLog}, {"", ""}, {"{", ""}};

    uint32_t session = Exchange(ProcessLoginReq, 0, "").header.ulSessionId;
    EXPECT_GE(session, 1U);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        const TestConnection connection;
        const CapturedOutput log;
        const Answer answer = ExchangeOn(connection.fd(), ProcessLoginReq, MakeRequest(1000, c.body, 0x77));
        ++session;
        EXPECT_EQ(answer.header.usMessageId, 1001);
        EXPECT_EQ(answer.header.ulSessionId, session);
        EXPECT_EQ(answer.body, LoginBody(session));
        EXPECT_EQ(GetSessionIdByFd(connection.fd()), session);
        EXPECT_EQ(GetFdType(connection.fd()), 0);
        const std::string lines = log.Lines();
        EXPECT_EQ(lines.substr(lines.find('\n') + 1), c.log);
        EXPECT_TRUE(log.Text().starts_with("[Trace]: Process ProtocolAccess.c ProcessLoginReq "));
    }
}

TEST(Login, ASecondLoginGivesTheConnectionAnotherSession)
{
    const TestConnection connection;
    const auto request = MakeRequest(1000, "{}");
    const uint32_t first = ExchangeOn(connection.fd(), ProcessLoginReq, request).header.ulSessionId;
    const TestConnection media(first, kFdMainStream);
    const Answer second = ExchangeOn(connection.fd(), ProcessLoginReq, request);
    EXPECT_EQ(second.body, LoginBody(first + 1));
    EXPECT_EQ(GetSessionIdByFd(connection.fd()), first + 1);
    EXPECT_EQ(GetSessionIdByFd(media.fd()), first);
}

TEST(Login, ByASocketOutsideTheTableIsAnsweredAndChangesNoConnection)
{
    const TestConnection bystander(3);
    const Answer answer = ExchangeOn(/* fd= */ 999, ProcessLoginReq, MakeRequest(1000));
    EXPECT_GE(answer.header.ulSessionId, 1U);
    EXPECT_EQ(answer.body, LoginBody(answer.header.ulSessionId));
    EXPECT_EQ(GetSessionIdByFd(bystander.fd()), 3U);
    EXPECT_EQ(GetFdType(bystander.fd()), -1);
}

TEST(Keepalive, AnswersWithTheSessionOfTheConnectionNotOfTheRequest)
{
    for (const char* body : {"", R"({"Name":"KeepAlive","SessionID":"0x00000063"})", "{"}) {
        const TestConnection connection(0x2A, kFdCommand);
        const auto request = MakeRequest(1006, body, /* session= */ 99);
        const Answer answer = ExchangeOn(connection.fd(), ProcessKeepaliveReq, request);
        EXPECT_EQ(answer.header.usMessageId, 1007);
        EXPECT_EQ(answer.header.ulSessionId, 0x2AU);
        EXPECT_EQ(answer.body, R"({"Name":"KeepAlive","Ret":100,"SessionID":"0x0000002a"})");
    }
    EXPECT_EQ(Exchange(ProcessKeepaliveReq, 0, "").body,
              R"({"Name":"KeepAlive","Ret":100,"SessionID":"0x00000000"})");
}

} // namespace
