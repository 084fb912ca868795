// What the frame source's set-up, its readers and the position queries share: the segments and the
// queue, and per client type the callbacks and the readers' flags.
//
// Every word is atomic: the set-up writes them, the readers read them, a reader that finds its ring
// created anew stores the new segment.
#pragma once

#include <atomic>
#include <cstdint>

#include "media/frame_source.h"
#include "media/ring_layout.h"

struct AVStreamSysInfo {
    std::atomic<int32_t> initFlag{0}; // 1 once the set-up of the live rings succeeded
    std::atomic<int32_t> StreamSharememID[kRingCount]{-1, -1, -1, -1}; // -1: none
    std::atomic<int32_t> queueId{-1};
};
extern AVStreamSysInfo gGetAVStreamSysInfo;

struct ReaderFlags {
    std::atomic<bool> isRunning{false};
    std::atomic<bool> isStarted{false}; // a thread was started for it; stays set
};

struct ClientState {
    std::atomic<FrameCallback*> frame{nullptr};
    std::atomic<StatusCallback*> status{nullptr};
    ReaderFlags reader[kRingCount];
};
extern ClientState g_clients[kLastClientType + 1];

inline bool IsClientType(int32_t clientType)
{
    return clientType >= kFirstClientType && clientType <= kLastClientType;
}

inline bool IsReaderRunning(int32_t clientType, uint32_t index)
{
    return g_clients[clientType].reader[index].isRunning.load(std::memory_order_relaxed);
}
