#include "media/stream_fanout.h"

#include <thread>

#include "media/media_layout.h"
#include "tests/media/fakes.h"

namespace {

class FanOut : public RunningFanOut {
  protected:
    FanOut() { g_watched = 1; }
    static int Put(uint32_t stream, const std::vector<uint8_t>& data, uint32_t kind = kSourceVideo)
    {
        return VideoCallbackFunc(kind, stream, data.data(), static_cast<int32_t>(data.size()), nullptr);
    }
    // First byte of the next frame, or -1.
    int Take(uint32_t stream)
    {
        return GetStreamFrame(stream, out_.data(), &length_, &kind_) == 0 ? out_[0] : -1;
    }

    std::vector<uint8_t> out_ = std::vector<uint8_t>(kMainFrameBytes);
    int32_t length_ = -5;
    uint32_t kind_ = 77;
};

TEST_F(FanOut, ArgumentsAreChecked)
{
    const uint8_t byte = 1;
    for (const uint32_t stream : {2U, ~0U}) {
        EXPECT_EQ(VideoCallbackFunc(0, stream, &byte, 1, nullptr), -1);
        EXPECT_EQ(GetStreamFrame(stream, out_.data(), &length_, &kind_), -1);
    }
    for (const auto& [data, length] :
         {std::pair(static_cast<const uint8_t*>(nullptr), 1), {&byte, 0}, {&byte, -1}})
        EXPECT_EQ(VideoCallbackFunc(0, 0, data, length, nullptr), -1);
}

TEST_F(FanOut, SlotOfAnOversizeFrameIsUsedByTheNext)
{
    for (const auto& [stream, most] : {std::pair(0U, 0xC0000), {1U, 0x40000}})
        for (uint8_t i = 0; i < 6; i++) { // once around the slots
            const int bytes = most - i % 2;
            const auto size = static_cast<size_t>(bytes);
            EXPECT_EQ(Put(stream, std::vector<uint8_t>(static_cast<size_t>(most) + 1, 0xEE)), 0);
            EXPECT_EQ(Put(stream, std::vector<uint8_t>(size, i), i % 2), 0);
            EXPECT_EQ(Take(stream), i);
            EXPECT_EQ(length_, bytes);
            EXPECT_EQ(kind_, i % 2U);
        }
}

TEST_F(FanOut, WithoutWatchersFramesAreDroppedAndOldOnesForgotten)
{
    FakeClock clock;
    Put(0, {1});
    Put(0, {2});
    g_watched = 0;
    Put(0, {3});
    EXPECT_EQ(clock.sleeps[3], 1);
    g_watched = 1;
    Put(0, {4});
    EXPECT_EQ(Take(0), 4);
    SetVideoProcessRunning(false);
    EXPECT_EQ(Put(2, {5}), 0); // stopped: not even looked at
    EXPECT_EQ(clock.sleeps[20], 1);
    EXPECT_EQ(Take(0), -1);
    EXPECT_EQ(length_, 0);
}

TEST_F(FanOut, FifthFrameWaitsForASlotAsLongAsSomebodyWatches)
{
    for (const bool isTaken : {true, false}) {
        for (uint8_t i = 1; i <= 4; i++)
            Put(0, {i});
        const int asked = g_asked;
        std::atomic<bool> hasReturned{false};
        std::thread producer([&] {
            EXPECT_EQ(Put(0, {5}), 0);
            hasReturned = true;
        });
        while (g_asked < asked + 2) // it asks again when it has found the buffer full
            std::this_thread::yield();
        EXPECT_FALSE(hasReturned);
        g_watched = isTaken ? 1 : 0;
        EXPECT_EQ(isTaken ? Take(0) : 1, 1);
        while (!hasReturned)
            WakeStreamWaiters();
        producer.join();
        g_watched = 1;
        if (!isTaken)
            Put(0, {5});
        for (int i = isTaken ? 2 : 5; i <= 5; i++)
            EXPECT_EQ(Take(0), i);
    }
}

TEST_F(FanOut, ManyFramesPassBetweenTwoThreadsUnharmed)
{
    constexpr int kFrames = 2000;
    std::thread producer([] {
        for (int i = 0; i < kFrames; i++)
            Put(1, std::vector<uint8_t>(static_cast<size_t>(1 + i % 700), static_cast<uint8_t>(i)));
    });
    for (int i = 0; i < kFrames; i++) {
        ASSERT_EQ(Take(1), i % 256);
        ASSERT_EQ(length_, 1 + i % 700);
        ASSERT_EQ(out_[static_cast<size_t>(length_) - 1], i % 256);
    }
    // A sender that waits learns of the stop, whoever wakes it otherwise.
    std::thread consumer([this] { EXPECT_EQ(Take(1), -1); });
    StopVideoProcess();
    consumer.join();
    producer.join();
}

// The whole process: the watcher gets its frames, and a start right after a stop leaves one sender.
TEST_F(FanOut, VideoProcessStartsStopsAndStartsAgain)
{
    SetVideoProcessRunning(false);
    g_watched = -1;
    FakeLog log;
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(StartVideoProcess(), 0);
        EXPECT_EQ(StartVideoProcess(), 0); // runs already
        {
            const Watcher watcher(0x11, 2);
            EXPECT_EQ(Put(1, {0, 0, 0, 1, 0x41, 9}), 0);
            std::vector<uint8_t> message;
            while ((message = watcher.Receive()).empty())
                std::this_thread::yield();
            EXPECT_EQ(message[33], 9);
        }
        EXPECT_EQ(StopVideoProcess(), 0);
    }
    for (const char* line : {"StartVideoProcess N: start!\n", "UnlockSignal N: Thread end!\n",
                             "StopVideoProcess N: SendAVStreamThread stop!\n"})
        EXPECT_EQ(log.Count(line), 2) << line;
    while (log.Count("SendAVStreamThread N: Thread end!\n") < 4) // two streams, two rounds
        std::this_thread::yield();
}

} // namespace
