#include "media/media_sender.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "media/ring_layout.h"
#include "media/stream_fanout.h"
#include "protocol/connection_table.h"
#include "tests/media/fakes.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A frame goes in, its messages come out.
class Sender : public RunningFanOut {
  protected:
    int Send(uint32_t stream, const Bytes& frame, uint32_t kind = kSourceVideo)
    {
        EXPECT_EQ(VideoCallbackFunc(kind, stream, frame.data(), static_cast<int32_t>(frame.size()), nullptr),
                  0);
        return PackAVFrame(stream, buffer_.data());
    }

    Bytes buffer_ = Bytes(kMediaBufferBytes);
};

// A frame of so many bytes that differ from their neighbours.
Bytes Frame(uint8_t nalHeader, size_t bytes)
{
    Bytes frame(bytes);
    for (size_t i = 0; i < bytes; i++)
        frame[i] = static_cast<uint8_t>(i * 7 + i / 256);
    const uint8_t start[] = {0, 0, 0, 1, nalHeader};
    std::copy(std::begin(start), std::end(start), frame.begin());
    return frame;
}

Bytes Joined(Bytes first, const Bytes& second, size_t from = 0, size_t to = SIZE_MAX)
{
    first.insert(first.end(), second.begin() + static_cast<ptrdiff_t>(from),
                 to < second.size() ? second.begin() + static_cast<ptrdiff_t>(to) : second.end());
    return first;
}

TEST_F(Sender, PFrameIsCutIntoFourMessages)
{
    const Watcher watcher(0x01020304, 1);
    const Bytes frame = Frame(0x41, 100000);
    FakeClock clock;
    EXPECT_EQ(Send(0, frame), 0);
    const Bytes sub = {0, 0, 1, 0xFD, 0xA0, 0x86, 0x01, 0x00};
    const struct {
        Bytes header;
        size_t from, to;
    } kMessages[] = {
        {{0xFF, 1, 1, 0, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0x84, 5, 0x00, 0x80, 0, 0}, 0, 32760},
        {{0xFF, 1, 1, 0, 4, 3, 2, 1, 1, 0, 0, 0, 0, 0, 0x84, 5, 0x00, 0x80, 0, 0}, 32760, 65528},
        {{0xFF, 1, 1, 0, 4, 3, 2, 1, 2, 0, 0, 0, 0, 0, 0x84, 5, 0x00, 0x80, 0, 0}, 65528, 98296},
        {{0xFF, 1, 1, 0, 4, 3, 2, 1, 3, 0, 0, 0, 0, 0, 0x84, 5, 0xA8, 0x06, 0, 0}, 98296, 100000},
    };
    for (const auto& message : kMessages) {
        const Bytes head = message.from == 0 ? Joined(message.header, sub) : message.header;
        const Bytes expected = Joined(head, frame, message.from, message.to);
        EXPECT_EQ(watcher.Receive(expected.size()), expected) << message.from;
    }
    EXPECT_TRUE(watcher.ReceiveAll().empty());
    EXPECT_EQ(clock.sleepsMs, (std::vector<uint32_t>{1, 1, 1}));
}

TEST_F(Sender, AudioIsCutIntoSmallMessages)
{
    const Watcher watcher(7, 2);
    Bytes audio(320);
    std::iota(audio.begin(), audio.end(), uint8_t{0});
    EXPECT_EQ(Send(1, audio, kSourceAudio), 0);
    Bytes expected = {0xFF, 1, 1,    0, 7, 0, 0, 0, 0, 0,    0,    0, 0,    0,
                      0x84, 5, 0xA8, 0, 0, 0, 0, 0, 1, 0xFA, 0x0E, 2, 0x40, 1};
    expected = Joined(expected, audio, 0, 160);
    expected = Joined(expected, {0xFF, 1, 1, 0, 7, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0x84, 5, 0xA0, 0, 0, 0});
    expected = Joined(expected, audio, 160);
    EXPECT_EQ(watcher.Receive(expected.size()), expected);
}

StreamEncoderConfig Encoder(uint32_t width, uint32_t height, uint32_t frameRate)
{
    StreamEncoderConfig config{};
    config.ulWidth = width;
    config.ulHeight = height;
    config.ulFrameRate = frameRate;
    return config;
}

// 2025-03-09 14:05:07: 25 << 26 | 3 << 22 | 9 << 17 | 14 << 12 | 5 << 6 | 7 = 0x64D2E147
const struct KeyFrameCase {
    const char* name;
    uint8_t nalHeader;
    std::vector<StreamEncoderConfig> answers;
    Bytes sub; // bytes 4 to 7
} kKeyFrameCases[] = {
    {"2560x1440 H.265", 0x40, {Encoder(2560, 1440, 25)}, {0x13, 25, 0x40, 180}},
    {"1920x1080 H.264", 0x67, {Encoder(1920, 1080, 30)}, {0x02, 30, 240, 135}},
    {"1921 wide", 0x67, {Encoder(1921, 1080, 30)}, {0x12, 30, 240, 135}},
    {"size known at second asking",
     0x67,
     {Encoder(0, 576, 15), Encoder(2560, 576, 20)},
     {0x02, 15, 0x40, 72}},
    {"height known at second asking", 0x67, {Encoder(704, 0, 15), Encoder(704, 576, 20)}, {0x02, 15, 88, 72}},
    {"no camera", 0x40, {}, {0x03, 0, 0, 0}},
};

TEST_F(Sender, KeyFrameTellsCodecRateSizeAndLocalTime)
{
    setenv("TZ", "UTC-2", 1); // two hours ahead
    tzset();
    FakeTime now(1741521907); // 12:05:07 UTC
    for (const KeyFrameCase& c : kKeyFrameCases) {
        SCOPED_TRACE(c.name);
        const Watcher watcher(0xA0B0C0D0, 1);
        g_encoderAnswers = c.answers;
        const Bytes frame = Frame(c.nalHeader, 5);
        EXPECT_EQ(Send(0, frame), 0);
        Bytes expected = {0xFF, 1, 1,    0, 0xD0, 0xC0, 0xB0, 0xA0, 0, 0, 0, 0,
                          0,    0, 0x84, 5, 21,   0,    0,    0,    0, 0, 1, 0xFC};
        expected = Joined(expected, c.sub);
        expected = Joined(expected, {0x47, 0xE1, 0xD2, 0x64, 5, 0, 0, 0});
        EXPECT_EQ(watcher.ReceiveAll(), Joined(expected, frame));
    }
    g_encoderAnswers.clear();
    setenv("TZ", "UTC", 1);
    tzset();
}

TEST_F(Sender, OnlyRecognisedFrameStartsAreSent)
{
    const struct {
        const char* name;
        Bytes frame;
        bool isSent;
    } kCases[] = {
        {"H.264 slice", Frame(0x61, 9), true},      {"H.265 slice", Frame(0x02, 9), true},
        {"H.264 SPS", Frame(0x27, 9), true},        {"H.265 VPS", Frame(0x40, 9), true},
        {"H.264 PPS", Frame(0x68, 9), false},       {"H.264 IDR slice", Frame(0x65, 9), false},
        {"H.265 IDR slice", Frame(0x26, 9), false}, {"JPEG", {0xFF, 0xD8, 0xFF, 0xE0, 0}, false},
        {"too short", {0, 0, 0, 1}, false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const Watcher watcher(1, 1);
        Send(0, Frame(0x41, 9)); // leaves a slice's header where a short frame has no byte
        watcher.ReceiveAll();
        EXPECT_EQ(Send(0, c.frame), 0);
        EXPECT_EQ(!watcher.ReceiveAll().empty(), c.isSent);
    }
}

TEST_F(Sender, EachWatcherOfTheStreamGetsItsOwnSessionAndSequence)
{
    const Watcher first(1, 1), second(2, 1), extra(3, 2), third(4, 3), stopped(5, 1);
    SetSendVideoFlag(stopped.fd(), 0);
    Send(0, Frame(0x41, 40000));
    Bytes one = first.Receive(2 * 20 + 8 + 40000), two = second.Receive(one.size());
    const size_t secondMessage = 20 + 32768;
    EXPECT_EQ(one[4], 1);
    EXPECT_EQ(two[4], 2);
    EXPECT_EQ(one[secondMessage + 8], 1);
    for (const size_t at : {size_t{0}, secondMessage})
        one[at + 4] = two[at + 4] = 0;
    EXPECT_EQ(one, two);
    for (const Watcher* other : {&extra, &third, &stopped})
        EXPECT_TRUE(other->ReceiveAll().empty());
    EXPECT_EQ(GetNextSeqnum(first.fd()), 2U);
}

TEST_F(Sender, StoppedProcessSendsNothing)
{
    const Watcher watcher(1, 1);
    SetVideoProcessRunning(false);
    EXPECT_EQ(PackAVFrame(0, buffer_.data()), -1);
    SetVideoProcessRunning(true);
    FakeClock clock;
    clock.onSleep = [] { SetVideoProcessRunning(false); }; // in the pause after the second message
    EXPECT_EQ(Send(0, Frame(0x41, 100000)), -1);
    EXPECT_EQ(watcher.ReceiveAll().size(), 2U * (20 + 32768));
}

// Results of the sends to the first of two receivers; the second gets everything in any case.
struct SendCase {
    const char* name;
    std::vector<int> results;
    std::vector<size_t> pieces; // asked of the first receiver; empty: not compared
    bool isKept;
    std::map<uint32_t, int> sleeps;
    const char* line;
    int lines;
};
const SendCase kSendCases[] = {
    {"whole", {}, {32768, 20}, true, {}, "", 0},
    {"short",
     {1000, 32768},
     {32768, 31788},
     true,
     {{2, 1}},
     "SendAVStream #: ret != sendlen !1000 != 32768\n",
     1},
    {"blocked 199 times",
     std::vector<int>(199, -EAGAIN),
     {},
     true,
     {{2, 199}},
     "SendAVStream #: ret -1 <= 0 !errno = 11\n",
     199},
    {"blocked 200 times",
     std::vector<int>(200, -EAGAIN),
     {},
     false,
     {{2, 199}},
     "SendAVStream #: ret11count >= 200\n",
     1},
    {"reset by the peer", {-ECONNRESET}, {32768}, false, {}, "SendAVStream #: ret -1 <= 0!errno = 104\n", 1},
};

TEST_F(Sender, ReceiverThatFailsOrBlocksTooLongIsDroppedAlone)
{
    for (const SendCase& c : kSendCases) {
        SCOPED_TRACE(c.name);
        const Watcher first(1, 1), second(2, 1);
        FakeSend send(c.results);
        FakeClock clock;
        FakeLog log;
        Bytes message(32788);
        std::iota(message.begin(), message.end(), uint8_t{3});
        SendAVStream(0, message.data(), message.size());
        for (size_t i = 0; i < c.pieces.size(); i++)
            EXPECT_EQ(send.pieces[i], c.pieces[i]);
        EXPECT_EQ(GetSessionIdByFd(first.fd()) == 1, c.isKept);
        EXPECT_EQ(clock.Counts(), c.sleeps);
        if (c.lines > 0) {
            EXPECT_EQ(log.Count(c.line), c.lines);
        }
        EXPECT_EQ(second.Receive(message.size()), message);
        if (c.isKept) {
            message[4] = 1;
            EXPECT_EQ(first.Receive(message.size()), message);
        }
    }
}

TEST_F(Sender, BlockedCountStartsAgainWithEachByteThatGoesOut)
{
    const Watcher watcher(1, 1);
    std::vector<int> results(199, -EAGAIN);
    results.push_back(1);
    results.insert(results.end(), 199, -EAGAIN);
    FakeSend send(results);
    FakeClock clock;
    Bytes message(100);
    SendAVStream(0, message.data(), message.size());
    EXPECT_EQ(watcher.ReceiveAll().size(), 100U);
}

TEST_F(Sender, ConnectionRemovedMeanwhileIsNotWaitedFor)
{
    const Watcher watcher(1, 1);
    FakeSend send(std::vector<int>(300, -EAGAIN));
    FakeClock clock;
    clock.onSleep = [&] { RemoveFd(watcher.fd()); };
    Bytes message(100);
    SendAVStream(0, message.data(), message.size());
    EXPECT_EQ(clock.sleepsMs.size(), 1U);
}

TEST_F(Sender, FramePathAllocatesNothing)
{
    const Watcher watcher(1, 1);
    const Bytes key = Frame(0x67, 50000), slice = Frame(0x41, 3000), audio(320);
    g_encoderAnswers = {Encoder(1920, 1080, 25)};
    Send(0, key); // the first key frame loads the time zone
    watcher.ReceiveAll();
    const CountAllocations allocations;
    for (int i = 0; i < 2; i++) {
        Send(0, key);
        Send(0, slice);
        Send(0, audio, kSourceAudio);
    }
    EXPECT_EQ(CountAllocations::count(), 0);
    const Bytes* const counted = new Bytes(1); // the counter counts
    EXPECT_EQ(CountAllocations::count(), 2);
    delete counted;
    g_encoderAnswers.clear();
}

} // namespace
