#include "server/ProtocolAccess.h"

#include "tests/captured_output.h"
#include "tests/exchange.h"
#include "tests/server/fakes.h"

namespace {

TEST(Dispatcher, HandsEachKnownIdToItsHandler)
{
    const TestConnection connection(5);
    const struct {
        uint16_t id;
        const char* answer;
        const char* call;
    } cases[] = {
        {1000, "AliveInterval", ""},
        {1006, "KeepAlive", ""},
        {1410, "", "ProcessMonitorReq "},
        {1413, "", "ProcessMonitorClaim "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.id);
        g_calls.clear();
        const Answer answer = ExchangeOn(connection.fd(), ProtocolNetworkProcess, MakeRequest(c.id, "{}"));
        EXPECT_NE(answer.body.find(c.answer), std::string::npos);
        const std::string arguments = std::to_string(connection.fd()) + " 22";
        EXPECT_EQ(g_calls, *c.call != '\0' ? std::vector<std::string>{c.call + arguments}
                                           : std::vector<std::string>{});
    }
}

TEST(Dispatcher, ConsumesItsOwnBroadcastRepliesInSilence)
{
    for (const uint16_t id : {kDevSearchReply, kDevIpSettingReply}) {
        const CapturedOutput log({STDERR_FILENO, STDOUT_FILENO});
        EXPECT_EQ(ExchangeOn(1, ProtocolNetworkProcess, MakeRequest(id, "{}", 7)).bytes, 0);
        EXPECT_EQ(log.Lines(), "[Trace]: ProtocolNetworkProcess N: id = 7 cmd = " + std::to_string(id) +
                                   " data len = 2 data = {}\n");
    }
}

const struct UnknownCase {
    const char* name;
    size_t length; // of the message that is received
    std::string trace;
    std::string report;
    std::string dump;
} kUnknownCases[] = {
    {"Nothing", 0, "id = 0 cmd = 0 data len = 0 data = ", "0\n", ""},
    {"OneByte", 1, "id = 0 cmd = 0 data len = 0 data = ", "0\n", "0xFF "},
    {"FiveBytes", 5, "id = 43 cmd = 0 data len = 0 data = ", "0\n", "0xFF 0x01 0x00 0x00 0x2B "},
    {"AllButTheLength", 16, "id = 43 cmd = 9999 data len = 0 data = ", "9999\n",
     "0xFF 0x01 0x00 0x00 0x2B 0x00 0x00 0x00 0x78 0x56 0x34 0x12 0x00 0x00 0x0F 0x27 "},
    {"HeaderOnly", 20, "id = 43 cmd = 9999 data len = 14 data = ", "9999\n",
     "0xFF 0x01 0x00 0x00 0x2B 0x00 0x00 0x00 0x78 0x56 0x34 0x12 0x00 0x00 0x0F 0x27 0x0E 0x00 0x00 0x00 "},
    {"Whole", 34, "id = 43 cmd = 9999 data len = 14 data = {\"Name\":\"Own\"}", "9999\n",
     "0xFF 0x01 0x00 0x00 0x2B 0x00 0x00 0x00 0x78 0x56 0x34 0x12 0x00 0x00 0x0F 0x27 0x0E 0x00 0x00 0x00 "
     "0x7B 0x22 0x4E 0x61 0x6D 0x65 0x22 0x3A 0x22 0x4F 0x77 0x6E 0x22 0x7D "},
};

TEST(Dispatcher, ReportsWhatItDoesNotKnowByteForByte)
{
    for (const UnknownCase& c : kUnknownCases) {
        SCOPED_TRACE(c.name);
        auto request = MakeRequest(9999, R"({"Name":"Own"})", 43);
        request.resize(c.length);
        const CapturedOutput log({STDERR_FILENO, STDOUT_FILENO});
        EXPECT_EQ(ExchangeOn(1, ProtocolNetworkProcess, request).bytes, 0);
        EXPECT_EQ(log.Lines(), "[Trace]: ProtocolNetworkProcess N: " + c.trace +
                                   "\n[Trace]: @@@@@@@@@@@@@@@@@ProtocolNetworkProcess N: "
                                   "Not supported this command : " +
                                   c.report + "[Trace]: @@@@@@@@@@@ProtocolNetworkProcess N: Name = " +
                                   (c.length == 34 ? "Own" : "(null)") + "\nBYTE_PRINT \n" + c.dump + "\n");
    }
}

TEST(Dispatcher, AFullReadWithoutAZeroByteStaysWithinItsBytes)
{
    const auto request = MakeRequest(9999, std::string(kMaxBodyBytes, '['));
    const CapturedOutput log({STDERR_FILENO, STDOUT_FILENO});
    int length = -1;
    std::vector<uint8_t> reply(kReplyBytes);
    ProtocolNetworkProcess(1, request.data(), static_cast<int>(request.size()), reply.data(), &length);
    EXPECT_EQ(length, 0);
    const std::string text = log.Text();
    EXPECT_EQ(text.size() - text.find("BYTE_PRINT \n") - 12, 5 * 10240 + 1U);
    EXPECT_NE(text.find("data = " + std::string(kMaxBodyBytes, '[') + "\n"), std::string::npos);
}

} // namespace
