#include "media/stream_fanout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "media/media_layout.h"
#include "tests/media/fakes.h"

namespace {

class FanOut : public RunningFanOut {
  protected:
    static int Put(uint32_t stream, std::vector<uint8_t> data, uint32_t kind = kSourceVideo)
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

TEST_F(FanOut, FramesComeOutInOrderPerStream)
{
    FakeWatch watch(true);
    for (uint8_t round = 0; round < 3; round++) {
        for (uint8_t i = 0; i < 4; i++) {
            EXPECT_EQ(Put(0, {static_cast<uint8_t>(10 * round + i), 1, 2}, i % 2), 0);
            EXPECT_EQ(Put(1, {static_cast<uint8_t>(100 + i)}), 0);
        }
        for (int i = 0; i < 4; i++) {
            EXPECT_EQ(Take(0), 10 * round + i);
            EXPECT_EQ(length_, 3);
            EXPECT_EQ(kind_, static_cast<uint32_t>(i % 2));
            EXPECT_EQ(Take(1), 100 + i);
        }
    }
}

TEST_F(FanOut, ArgumentsAreChecked)
{
    FakeWatch watch(true);
    FakeLog log;
    const uint8_t byte = 1;
    EXPECT_EQ(VideoCallbackFunc(0, 2, &byte, 1, nullptr), -1);
    EXPECT_EQ(VideoCallbackFunc(0, 0, nullptr, 1, nullptr), -1);
    EXPECT_EQ(VideoCallbackFunc(0, 0, &byte, 0, nullptr), -1);
    EXPECT_EQ(log.Count("VideoCallbackFunc #:iVideoIndex < 0 || iVideoIndex >= MAX_STREAM_NUMS\n"), 1);
    EXPECT_EQ(log.Count("VideoCallbackFunc #:VideoData == NULL || iDataLen <= 0\n"), 2);
    EXPECT_EQ(GetStreamFrame(0, nullptr, &length_, &kind_), -1);
    EXPECT_EQ(GetStreamFrame(0, out_.data(), nullptr, &kind_), -1);
    EXPECT_EQ(GetStreamFrame(0, out_.data(), &length_, nullptr), -1);
    EXPECT_EQ(GetStreamFrame(2, out_.data(), &length_, &kind_), -1);
}

TEST_F(FanOut, OversizeFramesAreDroppedAndTheirSlotIsUsedByTheNext)
{
    const struct {
        uint32_t stream;
        size_t limit;
        const char* line;
    } kRows[] = {
        {0, 0xC0000, "VideoCallbackFunc #: videoindex = 0 iDataLen = 786433 up to max 786432\n"},
        {1, 0x40000, "VideoCallbackFunc #: videoindex = 1 iDataLen = 262145 up to max 262144\n"},
    };
    for (const auto& row : kRows) {
        FakeWatch watch(true);
        FakeLog log;
        for (uint8_t i = 0; i < 6; i++) { // once around the slots
            EXPECT_EQ(Put(row.stream, std::vector<uint8_t>(row.limit + 1, 0xEE)), 0);
            EXPECT_EQ(Put(row.stream, std::vector<uint8_t>(row.limit, i)), 0);
            EXPECT_EQ(Take(row.stream), i);
            EXPECT_EQ(length_, static_cast<int32_t>(row.limit));
            EXPECT_EQ(out_[row.limit - 1], i);
        }
        EXPECT_EQ(log.Count(row.line), 6);
        EXPECT_EQ(log.Count("VideoCallbackFunc #\n"), 6);
    }
}

TEST_F(FanOut, WithoutWatchersFramesAreDroppedAndOldOnesForgotten)
{
    FakeWatch watch(true);
    FakeClock clock;
    Put(0, {1});
    Put(0, {2});
    watch.isWatched = false;
    Put(0, {3});
    EXPECT_EQ(clock.sleepsMs, std::vector<uint32_t>{3});
    watch.isWatched = true;
    Put(0, {4});
    EXPECT_EQ(Take(0), 4);
    SetVideoProcessRunning(false);
    EXPECT_EQ(Put(2, {5}), 0); // stopped: not even looked at
    EXPECT_EQ(clock.sleepsMs, (std::vector<uint32_t>{3, 20}));
    EXPECT_EQ(Take(0), -1);
    EXPECT_EQ(length_, 0);
}

TEST_F(FanOut, The3000thCallbackSaysThatTheStreamIsAlive)
{
    FakeLog log;
    FakeClock clock;
    SetVideoProcessRunning(false);
    constexpr char kAlive[] = "VideoCallbackFunc #: VLM VideoIndex 1 still alive....\n";
    while (log.Count(kAlive) == 0) // earlier tests have counted too
        Put(1, {1});
    for (int i = 0; i < 2999; i++)
        Put(1, {1});
    EXPECT_EQ(log.Count(kAlive), 1);
    Put(1, {1});
    EXPECT_EQ(log.Count(kAlive), 2);
}

// Waits until the producer has found the buffer full, which it tells by asking for watchers again.
void AwaitFull(const FakeWatch& watch, int asked)
{
    while (watch.asked < asked)
        std::this_thread::yield();
}

TEST_F(FanOut, FifthFrameWaitsForASlot)
{
    FakeWatch watch(true);
    for (uint8_t i = 1; i <= 4; i++)
        Put(0, {i});
    std::atomic<bool> isStored{false};
    std::thread producer([&] {
        Put(0, {5});
        isStored = true;
    });
    AwaitFull(watch, 6);
    EXPECT_FALSE(isStored);
    EXPECT_EQ(Take(0), 1);
    producer.join();
    for (int i = 2; i <= 5; i++)
        EXPECT_EQ(Take(0), i);
}

TEST_F(FanOut, ProducerThatWaitsDropsItsFrameWhenNobodyWatchesAnyMore)
{
    FakeWatch watch(true);
    for (uint8_t i = 1; i <= 4; i++)
        Put(0, {i});
    std::atomic<bool> hasReturned{false};
    std::thread producer([&] {
        EXPECT_EQ(Put(0, {5}), 0);
        hasReturned = true;
    });
    AwaitFull(watch, 6);
    watch.isWatched = false;
    while (!hasReturned)
        WakeStreamWaiters();
    producer.join();
    watch.isWatched = true;
    Put(0, {6});
    EXPECT_EQ(Take(0), 6);
}

TEST_F(FanOut, FrameWhoseRecordChangedIsDropped)
{
    FakeWatch watch(true);
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.SerialNumber = 7;
    header.AVDataLen = 1;
    const struct {
        const char* name;
        void (*change)(DataInfo*);
        bool isStored;
    } kCases[] = {
        {"unchanged", [](DataInfo*) {}, true},
        {"magic", [](DataInfo* h) { h->AVDataCheck = 0; }, false},
        {"serial", [](DataInfo* h) { h->SerialNumber = 8; }, false},
        {"length", [](DataInfo* h) { h->AVDataLen = 2; }, false},
        {"what readers do not judge", [](DataInfo* h) { h->ulReserved12 = 2; }, true},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        uint8_t record[65] = {};
        DataInfo now = header;
        c.change(&now);
        memcpy(record, &now, sizeof now);
        record[64] = 1;
        EXPECT_EQ(VideoCallbackFunc(0, 0, record + 64, 1, &header), 0);
        Put(0, {2});
        EXPECT_EQ(Take(0), c.isStored ? 1 : 2);
        if (c.isStored) {
            EXPECT_EQ(Take(0), 2);
        }
    }
}

TEST_F(FanOut, ManyFramesPassBetweenTwoThreadsUnharmed)
{
    FakeWatch watch(true);
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
    producer.join();
}

// The whole process: the watcher gets its frames, and a start right after a stop leaves one sender.
TEST_F(FanOut, VideoProcessStartsStopsAndStartsAgain)
{
    SetVideoProcessRunning(false);
    g_streamCallbackType = 0;
    FakeLog log;
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(StartVideoProcess(), 0);
        EXPECT_EQ(StartVideoProcess(), 0); // runs already
        EXPECT_EQ(g_streamCallbackType, 4U);
        {
            const Watcher watcher(0x11, 2);
            const uint8_t slice[] = {0, 0, 0, 1, 0x41, 9};
            EXPECT_EQ(VideoCallbackFunc(0, 1, slice, sizeof slice, nullptr), 0);
            EXPECT_EQ(watcher.Receive(34)[33], 9);
        }
        EXPECT_EQ(StopVideoProcess(), 0);
        EXPECT_FALSE(IsVideoProcessRunning());
    }
    EXPECT_EQ(StopVideoProcess(), 0);
    EXPECT_EQ(log.Count("StartVideoProcess #: start!\n"), 2);
    EXPECT_EQ(log.Count("UnlockSignal #: Thread end!\n"), 2);
    EXPECT_EQ(log.Count("StopVideoProcess #: SendAVStreamThread stop!\n"), 3);
    while (log.Count("SendAVStreamThread #: Thread end!\n") < 4) // two streams, two rounds
        std::this_thread::yield();
    EXPECT_EQ(log.Count("SendAVStreamThread #: VideoIndex = 1\n"), 2);
}

} // namespace
