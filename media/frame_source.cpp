#include "media/frame_source.h"

#include "common/clock.h"
#include "common/log.h"
#include "common/sysv_ipc.h"
#include "common/thread.h"
#include "media/frame_source_state.h"
#include "media/position_query.h"
#include "media/ring_reader.h"
#include "media/stream_fanout.h"
#include "media/talk_reader.h"

AVStreamSysInfo gGetAVStreamSysInfo;
ClientState g_clients[kLastClientType + 1];

namespace {

constexpr uint32_t kLiveRings = 3; // all but the talk audio
constexpr uint32_t kStartPauseMs = 500;

// Written by the thread that sets the frame source up.
bool g_isInitialized = false;
bool g_isTalkInitialized = false;

// One per reader, since a thread outlives the call that starts it.
ReaderArgument g_arguments[kLastClientType + 1][kRingCount];

void ResetSystemInfo()
{
    for (auto& id : gGetAVStreamSysInfo.StreamSharememID)
        id = -1;
    gGetAVStreamSysInfo.queueId = -1;
}

int CreateOrGetRing(uint32_t index)
{
    const RingShape& ring = kRings[index];
    const int id = IpcShareMemInit(ring.key, ring.ulSegmentBytes, kRingMode);
    gGetAVStreamSysInfo.StreamSharememID[index] = id;
    return id;
}

// The set-up that both kinds of client share: stores the callbacks, and prepares rings and queue until
// that succeeded once.
int InitClient(const char* function, int line, int32_t clientType, FrameCallback* frame,
               StatusCallback* status, int (*control)(), bool* isInitialized)
{
    LogTrace("%s %d:type = %d func = %p\n", function, line, clientType, reinterpret_cast<void*>(frame));
    if (!IsClientType(clientType))
        return kFrameSourceBadIndex;
    g_clients[clientType].frame = frame;
    g_clients[clientType].status = status;
    if (*isInitialized)
        return 0;
    if (const int error = control())
        return error;
    DrainPositionReplies(clientType);
    *isInitialized = true;
    return 0;
}

int DeliverToFanOut(uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo* header)
{
    return VideoCallbackFunc(source, stream, payload, header->AVDataLen, header);
}

int StreamIsAlwaysOn(uint32_t)
{
    return 1;
}

} // namespace

int GetAVStreamInit(int32_t clientType, FrameCallback* frame, StatusCallback* status)
{
    return InitClient(__func__, __LINE__, clientType, frame, status, GetAVControlInit, &g_isInitialized);
}

int GetVoiceTalkAVStreamInit(int32_t clientType, FrameCallback* frame, StatusCallback* status)
{
    return InitClient(__func__, __LINE__, clientType, frame, status, GetAVControlVoiceTalkInit,
                      &g_isTalkInitialized);
}

int GetAVControlInit()
{
    if (gGetAVStreamSysInfo.initFlag == 1)
        return 0;
    for (uint32_t i = 0; i < kLiveRings; i++) {
        const int id = CreateOrGetRing(i);
        if (id < 0) {
            LogTrace("%s %d: IpcShareMemInit fail i = %d\n", __func__, __LINE__, static_cast<int>(i));
            ResetSystemInfo();
            return kFrameSourceNoShm;
        }
        LogTrace("%s %d: gGetAVStreamSysInfo.StreamSharememID[%d] = %d \n", __func__, __LINE__,
                 static_cast<int>(i), id);
    }
    if (!OpenPositionQueue())
        return kFrameSourceNoQueue;
    gGetAVStreamSysInfo.initFlag = 1;
    return 0;
}

int GetAVControlVoiceTalkInit()
{
    const int id = CreateOrGetRing(kTalkAudio);
    if (id < 0) {
        LogTrace("%s %d: IpcShareMemInit fail\n", __func__, __LINE__);
        return kFrameSourceNoShm;
    }
    LogTrace("%s %d: gGetAVStreamSysInfo.StreamSharememID[%d]= %d, 0x%08x", __func__, __LINE__,
             static_cast<int>(kTalkAudio), id, static_cast<unsigned>(kRings[kTalkAudio].key));
    return OpenPositionQueue() ? 0 : kFrameSourceNoQueue;
}

int AVStreamStart(int32_t clientType, uint32_t index)
{
    if (index >= kRingCount || !IsClientType(clientType))
        return kFrameSourceBadIndex;
    ReaderFlags& flags = g_clients[clientType].reader[index];
    flags.isRunning = true;
    if (flags.isStarted.exchange(true))
        return 0;
    ReaderArgument* const argument = &g_arguments[clientType][index];
    *argument = {.clientType = clientType, .index = index};
    const bool isTalk = index == kTalkAudio;
    const char* const name = isTalk ? "AVStreamGetAudioTalkThread" : "AVStreamGetAVDataThread";
    ThreadBody* const body = isTalk ? AVStreamGetAudioTalkThread : AVStreamGetAVDataThread;
    if (const int error = StartDetachedThread(name, body, argument)) {
        LogTrace("%s %d: start %s of stream %d failed, error = %d\n", __func__, __LINE__, name,
                 static_cast<int>(index), error);
        flags.isStarted = false;
        return error;
    }
    SleepMs(kStartPauseMs);
    return 0;
}

int StartAVStream(int32_t clientType)
{
    // A reader without its ring ends with a log line of its own, so a failed set-up needs no branch.
    const int error = GetAVStreamInit(clientType, DeliverToFanOut, StreamIsAlwaysOn);
    for (const uint32_t index : {kMainStream, kSecondStream}) {
        LogTrace("%s %d\n", __func__, __LINE__);
        (void)AVStreamStart(clientType, index); // logs its failure
    }
    return error;
}
