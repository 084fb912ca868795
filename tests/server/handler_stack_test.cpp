// How much of its stack a thread touches that handles the bodies which nest deepest, measured with paint.

#include <algorithm>
#include <cstdio>

#include "common/thread.h"
#include "config/ability_report.h"
#include "config/get_config.h"
#include "config/set_config.h"
#include "server/ProtocolAccess.h"
#include "tests/exchange.h"

namespace {

constexpr uint8_t kPaint = 0xA5;
constexpr size_t kFrameInUse = 16384; // of the painting function and what it calls, with sanitizers

std::string Repeated(std::string_view text, int times)
{
    std::string result;
    for (; times > 0; times--)
        result += text;
    return result;
}

// The deepest values that are taken beside a name, in an object; and one level that is too deep.
std::vector<std::string> DeepValues()
{
    return {Repeated("[", 999) + Repeated("]", 999), Repeated("[", 1000) + Repeated("]", 1000),
            Repeated(R"({"":)", 998) + "{}" + Repeated("}", 998),
            Repeated(R"([{"":)", 499) + "[]" + Repeated("}]", 499)};
}

void HandleDeepBodies()
{
    std::vector<std::string> names = {"SystemInfo", "OPPTZControl", "OPMonitor"};
    for (const SettableObject& row : SettableObjects())
        names.emplace_back(row.name);
    for (const NamedAnswer& row : Abilities())
        names.emplace_back(row.name);
    const TestConnection connection;
    std::vector<uint8_t> reply(kReplyBytes);
    int replyLen = 0;
    const auto handle = [&](uint16_t id, const std::string& body) {
        std::vector<uint8_t> request = MakeRequest(id, body);
        ProtocolNetworkProcess(connection.fd(), request.data(), static_cast<int>(request.size()),
                               reply.data(), &replyLen);
    };
    const std::vector<std::string> values = DeepValues();
    for (const RequestRow& row : Requests())
        for (const std::string& value : values)
            if (row.usMessageId != kForceIFrameReq) // reads no body, and waits for the encoder host
                handle(row.usMessageId, R"({"Name":)" + value + "}");
    for (const uint16_t id : {kSetConfigReq, kGetAbilityReq, kPtzControlReq, kMonitorReq})
        for (const std::string& name : names)
            for (const std::string& value : values)
                handle(id, R"({"Name":")" + name + R"(",")" + name + "\":" + value + "}");
    for (const NamedAnswer& row : GetConfigAnswers())
        handle(kGetConfigReq, R"({"Name":")" + std::string(row.name) + "\"}");
    handle(9999, std::string(kMaxBodyBytes, 'x')); // is printed byte by byte
}

// Paints its thread's stack, has the bodies handled, and writes down how much of it lost its paint.
void* Measure(void* used)
{
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    void* stack = nullptr;
    size_t bytes = 0, guard = 0;
    pthread_attr_getstack(&attributes, &stack, &bytes);
    pthread_attr_getguardsize(&attributes, &guard);
    pthread_attr_destroy(&attributes);
    auto* const begin = static_cast<uint8_t*>(stack) + guard;
    auto* const end = static_cast<uint8_t*>(__builtin_frame_address(0)) - kFrameInUse;
    std::fill(begin, end, kPaint);
    HandleDeepBodies();
    const uint8_t* const touched = std::find_if(begin, end, [](uint8_t byte) { return byte != kPaint; });
    *static_cast<size_t*>(used) = static_cast<size_t>(static_cast<uint8_t*>(stack) + bytes - touched);
    return nullptr;
}

TEST(HandlerStack, HoldsTheDeepestBodyFourTimes)
{
    size_t used = 0;
    pthread_t thread{};
    ASSERT_EQ(StartThread("measured", Measure, &used, &thread), 0);
    pthread_join(thread, nullptr);
    EXPECT_GT(used, kMaxBodyBytes * 5) << "the bytes that are printed alone"; // or nothing was measured
    EXPECT_LE(used, kThreadStackBytes / 4);
    printf("stack used: %zu of %zu bytes\n", used, kThreadStackBytes);
}

} // namespace
