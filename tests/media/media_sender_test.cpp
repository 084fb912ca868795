#include "media/media_sender.h"

#include <cerrno>

#include "media/stream_fanout.h"
#include "tests/media/fakes.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A frame of so many bytes that differ from their neighbours.
Bytes Frame(uint8_t nalHeader, size_t bytes)
{
    Bytes frame = {0, 0, 0, 1, nalHeader};
    while (frame.size() < bytes)
        frame.push_back(static_cast<uint8_t>(frame.size() * 7 + frame.size() / 256));
    return frame;
}

class Sender : public RunningFanOut {
  protected:
    int Send(uint32_t stream, const Bytes& frame, uint32_t kind = kSourceVideo)
    {
        const auto length = static_cast<int32_t>(frame.size());
        EXPECT_EQ(VideoCallbackFunc(kind, stream, frame.data(), length, nullptr), 0);
        return PackAVFrame(stream, buffer_.data());
    }
    // Expects the frame behind this sub-header in one message.
    void Expect(uint32_t stream, uint32_t kind, const Bytes& frame, const Bytes& subHeader)
    {
        const Watcher watcher(0x01020304, static_cast<int32_t>(stream) + 1);
        EXPECT_EQ(Send(stream, frame, kind), 0);
        const auto size = static_cast<uint8_t>(subHeader.size() + frame.size());
        Bytes expected = {0xFF, 1, 1, 0, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0x84, 5, size, 0, 0, 0};
        expected.insert(expected.end(), subHeader.begin(), subHeader.end());
        expected.insert(expected.end(), frame.begin(), frame.end());
        EXPECT_EQ(watcher.Receive(), expected);
    }

    Bytes buffer_ = Bytes(kMediaBufferBytes);
    FakeClock clock_;
};

StreamEncoderConfig Encoder(uint32_t width, uint32_t height, uint32_t frameRate)
{
    StreamEncoderConfig config{};
    config.ulWidth = width;
    config.ulHeight = height;
    config.ulFrameRate = frameRate;
    return config;
}

TEST_F(Sender, FramesFollowTheirSubHeaders)
{
    Expect(0, kSourceVideo, Frame(0x41, 200), {0, 0, 1, 0xFD, 200, 0, 0, 0});
    Expect(1, kSourceAudio, Frame(0x41, 160), {0, 0, 1, 0xFA, 0x0E, 2, 0xA0, 0});
    setenv("TZ", "UTC-2", 1); // two hours ahead
    tzset();
    g_now = 1741521907; // 2025-03-09 12:05:07 UTC
    const auto key = [&](uint8_t nalHeader, std::vector<StreamEncoderConfig> answers, Bytes sub) {
        g_encoderAnswers = std::move(answers);
        // 25 << 26 | 3 << 22 | 9 << 17 | 14 << 12 | 5 << 6 | 7 = 0x64D2E147
        sub.insert(sub.end(), {0x47, 0xE1, 0xD2, 0x64, 5, 0, 0, 0});
        Expect(0, kSourceVideo, Frame(nalHeader, 5), sub);
    };
    key(0x40, {Encoder(2560, 1440, 25)}, {0, 0, 1, 0xFC, 0x13, 25, 0x40, 180});
    key(0x67, {Encoder(1920, 1080, 30)}, {0, 0, 1, 0xFC, 0x02, 30, 240, 135});
    key(0x67, {Encoder(1921, 1080, 30)}, {0, 0, 1, 0xFC, 0x12, 30, 240, 135});
    // Size and height are asked for twice.
    key(0x67, {Encoder(0, 576, 15), Encoder(2560, 576, 20)}, {0, 0, 1, 0xFC, 0x02, 15, 0x40, 72});
    key(0x67, {Encoder(704, 0, 15), Encoder(704, 576, 20)}, {0, 0, 1, 0xFC, 0x02, 15, 88, 72});
    key(0x40, {}, {0, 0, 1, 0xFC, 0x03, 0, 0, 0});
    g_now = 0;
    setenv("TZ", "UTC", 1);
    tzset();
}

TEST_F(Sender, StoppedProcessSendsNothingMore)
{
    const Watcher watcher(1, 1);
    clock_.onSleep = [] { SetVideoProcessRunning(false); }; // in the pause after the second message
    EXPECT_EQ(Send(0, Frame(0x41, 100000)), -1);
    EXPECT_EQ(watcher.Receive().size(), 2U * (20 + 32768));
}

TEST_F(Sender, StartAndStopTakeEffectWithTheNextFrame)
{
    const Watcher leaving(1, 1), late(2, 1);
    SetSendVideoFlag(late.fd(), 0);
    clock_.onSleep = [&] { // in the pause after the second message
        SetSendVideoFlag(leaving.fd(), 0);
        SetSendVideoFlag(late.fd(), 1);
    };
    const size_t wholeFrame = 4 * 20 + 8 + 100000;
    for (const bool isFirst : {true, false}) {
        EXPECT_EQ(Send(0, Frame(0x41, 100000)), 0);
        EXPECT_EQ(leaving.Receive().size(), isFirst ? wholeFrame : 0);
        EXPECT_EQ(late.Receive().size(), isFirst ? 0 : wholeFrame);
    }
}

TEST_F(Sender, ReceiverThatFailsOrBlocksTooLongIsDroppedAlone)
{
    // Results of the sends to the first of two receivers; the second gets everything in any case.
    const auto check = [&](std::vector<int> results, bool isKept, int sleeps, const char* line = "",
                           int lines = 0) {
        SCOPED_TRACE(line);
        const Watcher first(1, 1), second(2, 1);
        FakeSend send(std::move(results));
        FakeLog log;
        Bytes message = Frame(3, 32788);
        clock_.sleeps.clear();
        SendAVStream(FrameReceivers(0), message.data(), message.size());
        EXPECT_EQ(GetSessionIdByFd(first.fd()) == 1, isKept);
        EXPECT_EQ(clock_.sleeps[2], sleeps);
        EXPECT_EQ(log.Count(line), lines);
        EXPECT_EQ(second.Receive(), message);
        message[4] = 1;
        EXPECT_EQ(first.Receive() == message, isKept);
    };
    std::vector<int> blocked(199, -EAGAIN);
    check({}, true, 0);
    check({1000, 32768}, true, 1, "SendAVStream N: ret != sendlen !1000 != 32768\n", 1);
    check({-ECONNRESET}, false, 0, "SendAVStream N: ret -1 <= 0!errno = 104\n", 1);
    blocked.push_back(1); // a byte that goes out starts the count again
    blocked.insert(blocked.end(), 199, -EAGAIN);
    check(blocked, true, 399, "SendAVStream N: ret -1 <= 0 !errno = 11\n", 398);
    check(std::vector<int>(200, -EAGAIN), false, 199, "SendAVStream N: ret11count >= 200\n", 1);
}

TEST_F(Sender, ConnectionRemovedMeanwhileIsNotWaitedFor)
{
    const Watcher watcher(1, 1);
    FakeSend send(std::vector<int>(300, -EAGAIN));
    clock_.onSleep = [&] { RemoveFd(watcher.fd()); };
    EXPECT_EQ(Send(0, Frame(0x41, 100)), 0);
    EXPECT_EQ(clock_.sleeps[2], 1);
}

} // namespace
