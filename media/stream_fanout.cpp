#include "media/stream_fanout.h"

#include <sys/mman.h>

#include <atomic>
#include <cstring>

#include "common/clock.h"
#include "common/log.h"
#include "common/mutex.h"
#include "media/media_layout.h"
#include "media/ring_segment.h"
#include "media/stream_buffers.h"
#include "protocol/connection_table.h"

namespace {

constexpr int32_t kSlots = 4;
constexpr int32_t kEmpty = -1;
constexpr int32_t kNoSlot = -1;
constexpr uint32_t kStoppedMs = 20;
constexpr uint32_t kUnwatchedMs = 3;
constexpr uint32_t kAliveCallbacks = 3000;
constexpr size_t kPageBytes = 4096;

alignas(kPageBytes) uint8_t g_mainSlots[kSlots * kMainFrameBytes];
alignas(kPageBytes) uint8_t g_extraSlots[kSlots * kExtraFrameBytes];

// One live stream. Changed under the stream lock; what the waits test is atomic, because they test it
// under the mutex of their condition, which may be taken with the stream lock held but not before it.
struct StreamBuffer {
    uint8_t* slots;
    int32_t slotBytes;
    RecursiveMutex lock{};
    std::atomic<int32_t> length[kSlots] = {kEmpty, kEmpty, kEmpty, kEmpty};
    uint32_t kind[kSlots] GUARDED_BY(lock) = {};
    std::atomic<int32_t> writeSlot{kNoSlot};
    std::atomic<int32_t> readSlot{0};
    std::atomic<uint32_t> framesWritten{0};
    std::atomic<uint32_t> framesTaken{0};
    bool isUnwatched GUARDED_BY(lock) = false; // emptied because nobody watches
    uint32_t callbacks = 0;                    // since the last alive line; the producer's own
    Mutex spaceMutex{};
    Condition space{}; // a slot was emptied
    Mutex dataMutex{};
    Condition data{}; // a slot was filled

    [[nodiscard]] uint8_t* Slot(int32_t index) const { return slots + ptrdiff_t{index} * slotBytes; }
};

StreamBuffer g_streams[kLiveStreams] = {
    {.slots = g_mainSlots, .slotBytes = kMainFrameBytes},
    {.slots = g_extraSlots, .slotBytes = kExtraFrameBytes},
};
std::atomic<bool> g_isCreated{false};
std::atomic<bool> g_isRunning{false};

void ResetPlacesLocked(StreamBuffer& stream) REQUIRES(stream.lock)
{
    stream.writeSlot = kNoSlot;
    stream.readSlot = 0;
    stream.framesWritten = 0;
    stream.framesTaken = 0;
}

void EmptySlotsLocked(StreamBuffer& stream) REQUIRES(stream.lock)
{
    for (auto& length : stream.length)
        length = kEmpty;
}

// Signals a condition whose test has just changed. A waiter tests under the mutex, so once it was ours
// the waiter either has seen the change or waits; the signal itself then finds nobody in its way.
void SignalChange(Mutex& mutex, Condition& condition)
{
    {
        const Locked changed(mutex);
    }
    condition.Signal();
}

void CountAlive(uint32_t index)
{
    if (++g_streams[index].callbacks >= kAliveCallbacks) {
        LogTrace("%s %d: VLM VideoIndex %d still alive....\n", "VideoCallbackFunc", __LINE__,
                 static_cast<int>(index));
        g_streams[index].callbacks = 0;
    }
}

// Nobody watches: empties the buffer, so that the next watcher does not begin with old frames.
void DropUnwatched(StreamBuffer& stream)
{
    {
        const RecursiveLocked lock(&stream.lock);
        if (!stream.isUnwatched)
            EmptySlotsLocked(stream);
        stream.isUnwatched = true;
        ResetPlacesLocked(stream);
    }
    SleepMs(kUnwatchedMs);
}

void AdvanceWriteSlot(StreamBuffer& stream)
{
    const RecursiveLocked lock(&stream.lock);
    stream.isUnwatched = false;
    stream.writeSlot = (stream.writeSlot + 1) % kSlots;
}

bool IsFull(const StreamBuffer& stream)
{
    const int32_t slot = stream.writeSlot;
    return (slot >= 0 && stream.length[slot] > 0) || stream.framesWritten - stream.framesTaken >= kSlots;
}

// Waits until the write slot is free. Returns false when nobody watches any more.
bool WaitForSpace(StreamBuffer& stream, uint32_t index)
{
    while (IsFull(stream)) {
        if (IsStreamWanted(index) != 1)
            return false;
        const Locked lock(stream.spaceMutex);
        if (IsFull(stream))
            stream.space.Wait(stream.spaceMutex);
    }
    return true;
}

struct Frame {
    uint32_t kind;
    const uint8_t* data;
    int32_t length;
    const DataInfo* header;
};

// Copies the frame into the write slot. Returns false when it does not fit or changed meanwhile.
bool CopyInLocked(StreamBuffer& stream, uint32_t index, int32_t slot, const Frame& frame)
    REQUIRES(stream.lock)
{
    static constexpr char kFunction[] = "VideoCallbackFunc";
    if (frame.length > stream.slotBytes) {
        LogTrace("%s %d: videoindex = %d iDataLen = %d up to max %d\n", kFunction, __LINE__,
                 static_cast<int>(index), frame.length, stream.slotBytes);
        return false;
    }
    stream.length[slot] = kEmpty;
    memcpy(stream.Slot(slot), frame.data, static_cast<size_t>(frame.length));
    if (frame.header != nullptr && !IsRecordUnchanged(frame.data, *frame.header)) {
        LogTrace("%s %d: VideoIndex = %d SerialNumber %u was overwritten, dropping it\n", kFunction, __LINE__,
                 static_cast<int>(index), frame.header->SerialNumber);
        return false;
    }
    stream.framesWritten++;
    stream.kind[slot] = frame.kind;
    stream.length[slot] = frame.length;
    return true;
}

bool Store(StreamBuffer& stream, uint32_t index, const Frame& frame)
{
    bool isStored;
    {
        const RecursiveLocked lock(&stream.lock);
        const int32_t slot = stream.writeSlot == kNoSlot ? 0 : stream.writeSlot.load();
        isStored = CopyInLocked(stream, index, slot, frame);
        // The next frame goes where this one was meant to.
        stream.writeSlot = isStored ? slot : (slot + kSlots - 1) % kSlots;
    }
    SignalChange(stream.dataMutex, stream.data);
    return isStored;
}

bool HasFrame(const StreamBuffer& stream)
{
    return stream.length[stream.readSlot] > 0 && stream.framesTaken <= stream.framesWritten + 1;
}

bool Take(StreamBuffer& stream, uint8_t* destination, int32_t* length, uint32_t* kind)
{
    {
        const RecursiveLocked lock(&stream.lock);
        if (!HasFrame(stream))
            return false;
        const int32_t slot = stream.readSlot;
        *length = stream.length[slot];
        *kind = stream.kind[slot];
        memcpy(destination, stream.Slot(slot), static_cast<size_t>(*length));
        stream.framesTaken++;
        stream.length[slot] = kEmpty;
        stream.readSlot = (slot + 1) % kSlots;
    }
    SignalChange(stream.spaceMutex, stream.space);
    return true;
}

} // namespace

int VideoCallbackFunc(uint32_t kind, uint32_t stream, const uint8_t* data, int32_t length,
                      const DataInfo* header)
{
    if (stream < kLiveStreams)
        CountAlive(stream);
    if (!g_isRunning) {
        SleepMs(kStoppedMs);
        return 0;
    }
    if (stream >= kLiveStreams) {
        LogTrace("%s %d:iVideoIndex < 0 || iVideoIndex >= MAX_STREAM_NUMS\n", __func__, __LINE__);
        return -1;
    }
    if (data == nullptr || length <= 0) {
        LogTrace("%s %d:VideoData == NULL || iDataLen <= 0\n", __func__, __LINE__);
        return -1;
    }
    StreamBuffer& buffer = g_streams[stream];
    if (IsStreamWanted(stream) != 1) {
        DropUnwatched(buffer);
        return 0;
    }
    AdvanceWriteSlot(buffer);
    if (!WaitForSpace(buffer, stream))
        DropUnwatched(buffer);
    else if (!Store(buffer, stream, {.kind = kind, .data = data, .length = length, .header = header}))
        LogTrace("%s %d\n", __func__, __LINE__);
    return 0;
}

int GetStreamFrame(uint32_t stream, uint8_t* destination, int32_t* length, uint32_t* kind)
{
    if (stream >= kLiveStreams || destination == nullptr || length == nullptr || kind == nullptr)
        return -1;
    *length = 0;
    if (!g_isCreated)
        return -1;
    StreamBuffer& buffer = g_streams[stream];
    while (!Take(buffer, destination, length, kind)) {
        if (!g_isRunning)
            return -1;
        const Locked lock(buffer.dataMutex);
        if (!HasFrame(buffer) && g_isRunning)
            buffer.data.Wait(buffer.dataMutex);
    }
    return 0;
}

void CreateStreamLocks()
{
    if (g_isCreated)
        return;
    for (StreamBuffer& stream : g_streams)
        (void)MutexCreate(&stream.lock); // logs its failure; a plain mutex then serves as well
    g_isCreated = true;
}

void EmptyStreamBuffers()
{
    if (!g_isCreated)
        return;
    for (StreamBuffer& stream : g_streams) {
        const RecursiveLocked lock(&stream.lock);
        // Pages that are given back read as zero, and cost no memory until a frame needs them.
        const size_t bytes = static_cast<size_t>(kSlots) * static_cast<size_t>(stream.slotBytes);
        if (madvise(stream.slots, bytes, MADV_DONTNEED) != 0)
            memset(stream.slots, 0, bytes);
        EmptySlotsLocked(stream);
        ResetPlacesLocked(stream);
        for (uint32_t& kind : stream.kind)
            kind = 0;
    }
}

void WakeStreamWaiters()
{
    for (StreamBuffer& stream : g_streams) {
        SignalChange(stream.dataMutex, stream.data);
        SignalChange(stream.spaceMutex, stream.space);
    }
}

void SetVideoProcessRunning(bool isRunning)
{
    g_isRunning = isRunning;
}

bool IsVideoProcessRunning()
{
    return g_isRunning;
}
