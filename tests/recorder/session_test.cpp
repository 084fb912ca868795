#include "recorder/session.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "recorder/failure.h"
#include "tests/recorder/fake_camera.h"

namespace {

constexpr milliseconds kLong{20'000};
constexpr milliseconds kShort{50};

TEST(Session, LogsInClaimsAndStartsUnderItsSessionId)
{
    Bytes claimBody, startBody;
    {
        FakeCamera camera({
            [&](Peer& peer) {
                peer.Login();
                startBody = peer.Answer(1410, R"({"Ret":100})").body;
                peer.AwaitClose();
            },
            [&](Peer& peer) {
                const Request claim = peer.Answer(1413, R"({"Ret":100})");
                EXPECT_EQ(claim.session, 7U);
                claimBody = claim.body;
                peer.AwaitClose();
            },
        });
        Session session({"127.0.0.1", camera.port()}, kLong);
        const Reply reply = session.Login();
        EXPECT_EQ(session.id(), 7U);
        EXPECT_NE(reply.text.find(R"("DeviceType":"IPC")"), std::string::npos);
        const Connection media = session.Claim(FindStream("EXTRA"));
        session.Monitor("Start", FindStream("main"));
    }
    EXPECT_EQ(claimBody, R"({"Name":"OPMonitor","OPMonitor":{"Action":"Claim","Parameter":{"Channel":0,)"
                         R"("StreamType":"Extra"}},"SessionID":"0x00000007"})");
    EXPECT_EQ(startBody, R"({"Name":"OPMonitor","OPMonitor":{"Action":"Start","Parameter":{"Channel":0,)"
                         R"("StreamType":"Main"}},"SessionID":"0x00000007"})");
    EXPECT_THROW(FindStream("third"), Failure);
}

TEST(Session, TakesTheAnswerThatMatchesAndNoOther)
{
    const struct {
        uint16_t request;
        uint16_t reply;
    } kCases[] = {{1042, 1043}, {1474, 1471}, {1562, 1501}, {9999, 10000}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.request);
        FakeCamera camera({[&c](Peer& peer) {
            const Request request = peer.Read();
            peer.Send(Wire(1504, 0, request.seqNum, R"({"Name":"alarm"})") +
                      Wire(c.reply, 0, request.seqNum + 1, R"({"Name":"other number"})") +
                      Wire(1007, 0, request.seqNum, R"({"Name":"other id"})") +
                      Wire(c.reply, 0, request.seqNum, R"({"Name":"mine","Ret":100})"));
            peer.AwaitClose();
        }});
        Session session({"127.0.0.1", camera.port()}, kLong);
        EXPECT_EQ(session.Request(c.request, "{}").text, R"({"Name":"mine","Ret":100})");
        EXPECT_EQ(session.alarms(), 1U);
    }
}

TEST(Session, KeepsItsIntervalWhateverTheCameraNames)
{
    const struct {
        const char* interval;
        int seconds;
    } kCases[] = {{"5", 5},     {"3600", 3600}, {"0", 20},    {"-3", 20},
                  {"3601", 20}, {"\"5\"", 20},  {"1e300", 20}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.interval);
        FakeCamera camera({[&c](Peer& peer) {
            peer.Answer(1000, Bytes(R"({"AliveInterval":)") + c.interval + R"(,"Ret":100})");
            peer.AwaitClose();
        }});
        Session session({"127.0.0.1", camera.port()}, kLong);
        EXPECT_EQ(session.nextWake(), TimePoint::max()) << "nothing to keep alive before login";
        const TimePoint before = Clock::now();
        session.Login();
        EXPECT_GE(session.nextWake(), before + std::chrono::seconds(c.seconds));
        EXPECT_LE(session.nextWake(), Clock::now() + std::chrono::seconds(c.seconds));
    }
}

// A poll loop in its simplest form: until the session throws or `until` says so.
template <typename Until> void Loop(Session& session, Until until)
{
    while (!until()) {
        pollfd entry{session.command().fd(), POLLIN, 0};
        if (poll(&entry, 1, PollTimeout(session.nextWake())) > 0)
            session.Receive();
        session.KeepAlive();
    }
}

TEST(Session, AnUnansweredKeepaliveTimesOut)
{
    FakeCamera camera({[](Peer& peer) {
        peer.Login(1);
        EXPECT_EQ(peer.Read().id, 1006);
        peer.AwaitClose();
    }});
    Session session({"127.0.0.1", camera.port()}, kLong);
    session.Login();
    session.setTimeout(kShort);
    try {
        Loop(session, [] { return false; });
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), kExitTimedOut);
        EXPECT_NE(std::string(failure.what()).find("keepalive"), std::string::npos);
    }
}

} // namespace
