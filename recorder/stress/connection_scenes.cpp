// Crowds of connections that say nothing, come and go, or send what no recorder sends.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <thread>

#include "recorder/failure.h"
#include "recorder/stress/crowd.h"
#include "recorder/stress/scenes.h"

namespace {

constexpr milliseconds kStep{5};
constexpr milliseconds kStormStep{1};
constexpr uint32_t kSeed = 20260101; // the same garbage every time

// Calls `step` every so often until the load is to end.
template <typename Step> void Repeat(const Load& load, milliseconds period, Step step)
{
    for (TimePoint next = Clock::now(); !load.stop.stop_requested(); next += period) {
        step();
        std::this_thread::sleep_until(next + period);
    }
}

// Whether all that came is the answer to a login with this sequence number, or its beginning.
bool IsLoginAnswer(const std::string& received, uint32_t seqNum)
{
    if (received.size() < kHeaderBytes)
        return true;
    const auto* const bytes = reinterpret_cast<const uint8_t*>(received.data());
    const MessageHeader header = ReadHeader(bytes, received.size());
    return header.ucHeadFlag == kHeadFlag && header.ucVersion == kVersion && header.ulSeqNum == seqNum &&
           header.usMessageId == kLoginReply && received.size() <= kHeaderBytes + header.ulBodyLength;
}

// Keeps what has come. Returns false at the connection's end.
bool Keep(Member& member)
{
    char bytes[4096];
    const ssize_t got = recv(member.fd.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (got > 0)
        member.received.append(bytes, static_cast<size_t>(got));
    return got > 0 || (got < 0 && errno == EAGAIN);
}

struct StormCounters {
    int64_t answered = 0;
    int64_t strange = 0; // answers that are not this connection's
};

void Leave(Member& member, bool abruptly)
{
    const linger now{.l_onoff = 1, .l_linger = 0};
    if (abruptly)
        (void)setsockopt(member.fd.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    member = {};
}

// Every third connection leaves at once, every third is reset with a request under way, and every third
// waits for the answer to its login, which must be its own.
void ComeAndGo(Member& member, uint32_t number, StormCounters* counters)
{
    constexpr milliseconds kPatience{3000};
    if (!member.isConnected)
        return;
    if (number % 3 == 0)
        return Leave(member, number % 2 == 0);
    if (member.sent == 0)
        member.sent = SendTo(member, RequestBytes(kLoginReq, R"({"UserName":"storm"})", number));
    if (number % 3 == 1 || !member.isConnected)
        return Leave(member, /* abruptly= */ true);
    const bool isOpen = Keep(member);
    if (!member.received.empty()) {
        counters->answered++;
        counters->strange += IsLoginAnswer(member.received, number) ? 0 : 1;
    }
    if (!isOpen || !member.received.empty() || Clock::now() - member.since > kPatience)
        Leave(member, number % 2 == 0);
}

int64_t MsUntilLogin(const Load& load)
{
    const TimePoint begin = Clock::now();
    Session session(load.options.address, std::chrono::seconds(60));
    session.Login();
    return std::chrono::ceil<milliseconds>(Clock::now() - begin).count();
}

} // namespace

Figures LoadConnections(const Load& load)
{
    Crowd crowd(load.camera, static_cast<size_t>(load.options.connections));
    int64_t most = 0;
    Repeat(load, kStep, [&] {
        crowd.Step();
        for (Member& member : crowd.members())
            (void)DiscardFrom(member); // notices who was sent away
        most = std::max(most, crowd.CountConnected());
    });
    for (Member& member : crowd.members())
        member.fd.reset();
    return {{"connections", crowd.opened()},
            {"connections_at_once", most},
            {"next_login_ms", MsUntilLogin(load)}};
}

Figures LoadStorm(const Load& load)
{
    Crowd crowd(load.camera, static_cast<size_t>(load.options.connections));
    StormCounters counters;
    std::vector<uint32_t> numbers(crowd.members().size());
    Repeat(load, kStormStep, [&] {
        crowd.Step();
        for (size_t i = 0; i < numbers.size(); i++) {
            Member& member = crowd.members()[i];
            ComeAndGo(member, numbers[i], &counters);
            if (!member.fd.isValid())
                numbers[i] = numbers[i] * 1664525 + 1013904223 + static_cast<uint32_t>(i);
        }
    });
    for (Member& member : crowd.members())
        member.fd.reset();
    return {{"connections", crowd.opened()},
            {"logins_answered", counters.answered},
            {"strange_answers", counters.strange},
            {"next_login_ms", MsUntilLogin(load)}};
}

Figures LoadTrickle(const Load& load)
{
    Crowd crowd(load.camera, static_cast<size_t>(load.options.connections));
    const std::string request = RequestBytes(kKeepaliveReq, std::string(5000, ' '));
    int64_t sent = 0;
    Repeat(load, milliseconds(std::max(1, load.options.everyMs)), [&] {
        crowd.Step();
        for (size_t i = 0; i < crowd.members().size(); i++) {
            Member& member = crowd.members()[i];
            // Every other one sends the header whole, so that the camera waits for the rest.
            const size_t bytes = member.sent == 0 && i % 2 == 1 ? kHeaderBytes : 1;
            const size_t gone = SendTo(member, std::string_view(request).substr(member.sent, bytes));
            member.sent = (member.sent + gone) % request.size();
            sent += static_cast<int64_t>(gone);
            (void)DiscardFrom(member);
        }
    });
    return {{"connections", crowd.opened()}, {"bytes", sent}};
}

Figures LoadGarbage(const Load& load)
{
    Crowd crowd(load.camera, static_cast<size_t>(load.options.connections));
    std::mt19937 random(kSeed);
    int64_t messages = 0;
    Repeat(load, milliseconds(1000 / std::max(1, load.options.rate)), [&] {
        crowd.Step();
        std::string bytes(1 + random() % 2000, '\0');
        std::ranges::generate(bytes, [&] { return static_cast<char>(random()); });
        if (random() % 2 == 0) // a header that is right, before a body that is none
            bytes = RequestBytes(static_cast<uint16_t>(1000 + random() % 600), bytes);
        Member& member = crowd.members()[random() % crowd.members().size()];
        messages += SendTo(member, bytes) > 0 ? 1 : 0;
        for (Member& other : crowd.members())
            (void)DiscardFrom(other);
    });
    return {{"connections", crowd.opened()}, {"messages", messages}};
}

Figures LoadUnreadReplies(const Load& load)
{
    Crowd crowd(load.camera, static_cast<size_t>(load.options.connections));
    const std::string request = RequestBytes(load.options.requestId, R"({"Name":"SystemFunction"})");
    const auto period = milliseconds(std::max(1, 1000 * load.options.connections / load.options.rate));
    int64_t requests = 0;
    Repeat(load, period, [&] {
        crowd.Step();
        for (Member& member : crowd.members())
            requests += SendTo(member, request) > 0 ? 1 : 0;
    });
    int64_t unread = 0;
    for (Member& member : crowd.members())
        unread += DiscardFrom(member);
    return {{"connections", crowd.opened()}, {"requests", requests}, {"unread_bytes", unread}};
}

Figures LoadConsole(const Load& load)
{
    sockaddr_in console = load.camera;
    console.sin_port = htons(load.options.consolePort);
    Crowd stuck(console, static_cast<size_t>(load.options.connections));
    Crowd talking(load.camera, 1);
    const std::string unknown = RequestBytes(9999, std::string(10000, 'x')); // which the camera prints
    int64_t requests = 0;
    Repeat(load, milliseconds(std::max(1, 1000 / load.options.rate)), [&] {
        stuck.Step();
        talking.Step();
        requests += SendTo(talking.members()[0], unknown) > 0 ? 1 : 0;
    });
    int64_t shown = 0;
    for (Member& member : stuck.members())
        shown += DiscardFrom(member);
    return {{"console_clients", stuck.opened()}, {"requests", requests}, {"console_bytes", shown}};
}
