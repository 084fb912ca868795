#include "recorder/session.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cstring>

#include "recorder/failure.h"
#include "tests/recorder/fake_camera.h"

namespace {

constexpr milliseconds kLong{20'000};

TEST(Session, TakesTheAnswerThatMatchesAndNoOther)
{
    const std::pair<uint16_t, uint16_t> kCases[] = {{1042, 1043}, {1474, 1471}, {1562, 1501}, {9999, 10000}};
    for (const auto& [requestId, replyId] : kCases) {
        FakeCamera camera({[reply = replyId](Peer& peer) {
            const uint32_t seqNum = peer.Read().seqNum;
            peer.Send(Wire(1504, seqNum, "alarm") + Wire(reply, seqNum + 1, "other number") +
                      Wire(1007, seqNum, "other id") + Wire(reply, seqNum, "mine"));
        }});
        Session session(camera.address, kLong);
        EXPECT_EQ(session.Request(requestId, "{}").text, "mine");
        EXPECT_EQ(session.alarms(), 1U);
    }
}

// A camera that is slow, not deaf: it answers both, and nothing may be sent before it has.
TEST(Session, TakesALateAnswerAndWaitsForTheOther)
{
    FakeCamera camera({[](Peer& peer) {
        uint8_t both[2][22]; // header and "{}"; on a slow machine one read may hold both
        EXPECT_EQ(recv(peer.fd.get(), both, sizeof both, MSG_WAITALL), 44);
        EXPECT_EQ(memcmp(both[0] + 12, both[1] + 12, 10), 0) << "the same but for its number";
        peer.Send(Wire(1041, LoadLe<uint32_t>(both[0] + 8), R"({"Ret":100})"));
        pollfd entry{peer.fd.get(), POLLIN, 0};
        EXPECT_EQ(poll(&entry, 1, 50), 0) << "the next request must wait";
        peer.Send(Wire(1041, LoadLe<uint32_t>(both[1] + 8), R"({"Ret":100})"));
        peer.Answer();
    }});
    Session session(camera.address, kLong);
    session.RequestTwiceOk(1040, "{}", milliseconds(10));
    session.RequestOk(1042, "{}");
}

TEST(Session, KeepsItsIntervalWhateverTheCameraNames)
{
    const std::pair<const char*, int> kCases[] = {
        {"5", 5}, {"3600", 3600}, {"0", 20}, {"3601", 20}, {"\"5\"", 20}};
    for (const auto& [interval, seconds] : kCases) {
        FakeCamera camera({[text = Bytes(interval)](Peer& peer) {
            peer.Answer(R"({"AliveInterval":)" + text + R"(,"Ret":100})");
        }});
        Session session(camera.address, kLong);
        EXPECT_EQ(session.nextWake(), TimePoint::max()) << "nothing to keep alive before login";
        const TimePoint before = Clock::now();
        session.Login();
        EXPECT_GE(session.nextWake(), before + std::chrono::seconds(seconds)) << interval;
        EXPECT_LE(session.nextWake(), Clock::now() + std::chrono::seconds(seconds)) << interval;
    }
}

TEST(Session, AnUnansweredKeepaliveTimesOut)
{
    FakeCamera camera({[](Peer& peer) {
        peer.Answer(R"({"AliveInterval":1,"Ret":100})");
        EXPECT_EQ(peer.Read().id, 1006);
        peer.AwaitClose();
    }});
    Session session(camera.address, kLong);
    session.Login();
    session.setTimeout(milliseconds(50));
    try {
        for (;; session.KeepAlive())
            poll(nullptr, 0, PollTimeout(session.nextWake()));
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), kExitTimedOut);
        EXPECT_NE(std::string(failure.what()).find("keepalive"), std::string::npos);
    }
}

} // namespace
