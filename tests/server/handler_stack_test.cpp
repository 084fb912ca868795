// How much of its stack a thread touches that handles the bodies which nest deepest, measured with paint.

#include <algorithm>
#include <cstdio>

#include "common/thread.h"
#include "config/set_config.h"
#include "server/ProtocolAccess.h"
#include "tests/exchange.h"

namespace {

constexpr uint8_t kPaint = 0xA5;
constexpr size_t kInUse = 16384; // at most, by the painter itself

std::string Nested(std::string_view open, std::string_view close, int times)
{
    std::string result;
    for (int i = 0; i < times; i++)
        result = std::string(open).append(result).append(close);
    return result;
}

void HandleDeepBodies()
{
    // The deepest that are taken as a member, and one that is a level too deep.
    const std::string values[] = {Nested("[", "]", 999), Nested("[", "]", 1000),
                                  Nested(R"([{"":)", "}]", 499).insert(size_t{499} * 5, "[]")};
    std::vector<std::string> names = {"OPPTZControl", "OPMonitor", "MotionArea", "SystemInfo"};
    for (const SettableObject& object : SettableObjects())
        names.emplace_back(object.name);
    const TestConnection connection;
    std::vector<uint8_t> reply(kReplyBytes);
    int replyLen = 0;
    const auto handle = [&](uint16_t id, const std::string& body) {
        const std::vector<uint8_t> request = MakeRequest(id, body);
        ProtocolNetworkProcess(connection.fd(), request.data(), static_cast<int>(request.size()),
                               reply.data(), &replyLen);
    };
    for (const RequestRow& row : Requests())
        for (const std::string& name : names)
            for (const std::string& value : values)
                if (row.usMessageId != kForceIFrameReq) // reads no body, and waits for the encoder host
                    handle(row.usMessageId, R"({"Name":")" + name + R"(",")" + name + "\":" + value + "}");
    handle(9999, std::string(kMaxBodyBytes, 'x')); // is printed byte by byte
}

// Paints the stack of its thread below its own frame, has the bodies handled, and writes down how many bytes
// have lost their paint. Where the stack ends is asked for: sanitizers keep a good part of it for themselves.
void* Measure(void* used)
{
    pthread_attr_t attributes;
    void* stack = nullptr;
    size_t bytes = 0, guardBytes = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstack(&attributes, &stack, &bytes);
    pthread_attr_getguardsize(&attributes, &guardBytes);
    pthread_attr_destroy(&attributes);
    auto* const top = static_cast<uint8_t*>(__builtin_frame_address(0));
    uint8_t* const begin = static_cast<uint8_t*>(stack) + guardBytes;
    std::fill(begin, top - kInUse, kPaint);
    HandleDeepBodies();
    const uint8_t* const touched = std::find_if(begin, top, [](uint8_t byte) { return byte != kPaint; });
    *static_cast<size_t*>(used) = static_cast<size_t>(top - touched);
    return nullptr;
}

TEST(HandlerStack, HoldsTheDeepestBodyFourTimes)
{
    size_t used = 0;
    pthread_t thread{};
    ASSERT_EQ(StartThread("measured", Measure, &used, &thread), 0);
    pthread_join(thread, nullptr);
    EXPECT_GT(used, kMaxBodyBytes * 5) << "what is printed alone"; // or nothing was measured
    EXPECT_LE(used, kThreadStackBytes / 4);
    printf("stack used: %zu of %zu bytes\n", used, kThreadStackBytes);
}

} // namespace
