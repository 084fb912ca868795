#include "server/requests/system_requests.h"

#include <ctime>

#include "camera/parameter_fields.h"
#include "server/requests/account_requests.h"
#include "tests/camera/parameter_host.h"
#include "tests/exchange.h"

namespace {

std::vector<time_t> g_clock; // what the system's clock was set to, had it been let

} // namespace

extern "C" int __wrap_clock_settime(clockid_t, const timespec*);
int __wrap_clock_settime(clockid_t, const timespec* time)
{
    g_clock.push_back(time->tv_sec);
    return 0;
}

namespace {

Request Byte(uint32_t field, uint8_t value)
{
    return SentByte(ParameterCode(field).value(), value);
}

struct Effect {
    std::vector<Request> sent;
    std::vector<time_t> clock;
    bool operator==(const Effect&) const = default;
};

Effect EffectOf(RequestHandler* handler, const std::string& body)
{
    const TestConnection recorder(0xA);
    Host().Take();
    g_clock.clear();
    const Answer answer = ExchangeOn(recorder.fd(), handler, MakeRequest(1450, body));
    EXPECT_EQ(answer.body, R"({"Name":"","Ret":100,"SessionID":"0x0000000a"})");
    return {Host().Take(), g_clock};
}

TEST(SystemRequests, SetTheClockAndActOnTheDevice)
{
    Host().Set<uint8_t>({{1158, 40}, {1170, 0}}); // eight hours east of UTC, clock not locked
    const Request zone[] = {Byte(4402, 0), Byte(4300, 40)};
    const Request isSet = Byte(4302, 1);
    const time_t newYear = 1704067200 + 28800; // 2024-01-01, and the zone
    const std::tuple<RequestHandler*, const char*, Effect> cases[] = {
        {ProcessTimeSettingReq, R"({"OPTimeSettingNoRTC":"2024-01-01 00:00:00"})", {{isSet}, {newYear}}},
        {ProcessTimeSettingReq, R"({"OPTimeSettingNoRTC":"2024-13-01 00:00:00"})", {}},
        {ProcessTimeSettingReq, R"({"OPTimeSettingNoRTC":"2024-01-01"})", {}},
        {ProcessTimeSettingReq, "", {}},
        {ProcessSysManagerReq,
         R"({"Name":"OPTimeSetting","OPTimeSetting":"2024-01-01 00:00:01"})",
         {{zone[0], zone[1], isSet}, {newYear + 1}}},
        {ProcessSysManagerReq,
         R"({"Name":"OPUTCTimeSetting","OPUTCTimeSetting":"2024-01-01 00:00:02"})",
         {{zone[0], zone[1], isSet}, {newYear + 2}}},
        {ProcessSysManagerReq,
         R"({"Name":"OPTimeSetting","OPUTCTimeSetting":"2024-01-01 00:00:00"})",
         {{zone[0], zone[1]}, {}}},
        {ProcessSysManagerReq, R"({"Name":"OPMachine"})", {{zone[0], zone[1], Byte(4396, 1)}, {}}},
        {ProcessSysManagerReq, R"({"Name":"OPDefaultConfig"})", {{zone[0], zone[1], Byte(4395, 1)}, {}}},
        {ProcessSysManagerReq, R"({"Name":"OPLogManager"})", {{zone[0], zone[1]}, {}}},
        {ProcessSysManagerReq, R"({"Name":7})", {{zone[0], zone[1]}, {}}},
        {ProcessSysManagerReq, "no JSON", {}},
        {ProcessOPLogQueryReq, R"({"Name":"OPMachine"})", {}},
    };
    for (const auto& [handler, body, effect] : cases)
        EXPECT_EQ(EffectOf(handler, body), effect) << body;
    Host().Set<uint8_t>({{1170, 1}}); // the clock is locked
    EXPECT_EQ(
        EffectOf(ProcessSysManagerReq, R"({"Name":"OPTimeSetting","OPTimeSetting":"2024-01-01 0:0:0"})"),
        Effect{});
}

TEST(AccountRequests, SubscribeWhoReadsTheAccounts)
{
    const std::pair<RequestHandler*, int> cases[] = {{ProcessUserSettingReq, 0},
                                                     {ProcessGetChanTitleReq, 0},
                                                     {ProcessUserUsersReq, 1},
                                                     {ProcessUserGroupReq, 1},
                                                     {ProcessUserManageReq, 1}};
    for (const auto& [handler, isSubscribed] : cases) {
        const TestConnection recorder(1);
        EXPECT_GT(ExchangeOn(recorder.fd(), handler, MakeRequest(1472)).bytes, 0);
        EXPECT_EQ(GetAlarmFlag(recorder.fd()), isSubscribed);
    }
}

} // namespace
