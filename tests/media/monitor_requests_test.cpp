#include "media/monitor_requests.h"

#include "tests/exchange.h"

namespace {

TEST(MonitorRequest, AStartIsRememberedOnceAndAStopForgetsIt)
{
    const TestConnection recorder(9);
    for (const bool wasStarted : {false, true})
        for (const auto& [action, isStarted] :
             {std::pair("START", true), {"stop", false}, {"Pause", wasStarted}}) {
            wasStarted ? SetMonitorStartFlag() : ClearMonitorStartFlag();
            const std::string body = R"({"OPMonitor":{"Action":")" + std::string(action) + R"("}})";
            const Answer answer = ExchangeOn(recorder.fd(), ProcessMonitorReq, MakeRequest(1410, body));
            EXPECT_EQ(answer.body, R"({"Name":"OPMonitor","Ret":100,"SessionID":"0x00000009"})");
            EXPECT_EQ(TakeMonitorStartFlag(), isStarted) << action;
            EXPECT_FALSE(TakeMonitorStartFlag());
        }
}

} // namespace
