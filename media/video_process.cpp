// Start and stop of the video process: its buffers, its two senders and the thread that wakes them.
#include <atomic>

#include "camera/camera_commands.h"
#include "common/clock.h"
#include "common/log.h"
#include "common/mutex.h"
#include "common/thread.h"
#include "media/media_sender.h"
#include "media/stream_buffers.h"
#include "media/stream_fanout.h"

namespace {

constexpr uint32_t kWakeMs = 500;

// The caller of start and stop alone.
bool g_isWaking = false; // g_waker runs
pthread_t g_waker;

Mutex g_senderMutex;
Condition g_senderEnded;
int g_senders GUARDED_BY(g_senderMutex) = 0; // threads that have not ended yet

uint32_t g_streamIndex[kLiveStreams] = {kMainStream, kSecondStream};

void CountSender(int change)
{
    const Locked lock(g_senderMutex);
    g_senders += change;
    g_senderEnded.Signal();
}

void* RunSender(void* argument)
{
    SendAVStreamThread(*static_cast<const uint32_t*>(argument));
    CountSender(-1);
    return nullptr;
}

// A sender that has not noticed yet that it was stopped must not go on beside the new one.
void AwaitOldSenders()
{
    const Locked lock(g_senderMutex);
    while (g_senders > 0)
        g_senderEnded.Wait(g_senderMutex);
}

void StartSender(uint32_t* stream)
{
    CountSender(1);
    if (const int error = StartDetachedThread("SendAVStreamThread", RunSender, stream)) {
        LogTrace("%s %d: start sender of stream %d failed, error = %d\n", __func__, __LINE__,
                 static_cast<int>(*stream), error);
        CountSender(-1);
    }
}

// Whoever waits tests its condition at least this often, such as a producer whose watchers have gone.
void* UnlockSignal(void*)
{
    while (IsVideoProcessRunning()) {
        SleepMs(kWakeMs);
        WakeStreamWaiters();
    }
    LogTrace("%s %d: Thread end!\n", __func__, __LINE__);
    return nullptr;
}

} // namespace

int StartVideoProcess()
{
    if (IsVideoProcessRunning())
        return 0;
    CreateStreamLocks();
    AwaitOldSenders();
    EmptyStreamBuffers();
    (void)CameraSetStreamCallback(kCallbackVelmora, VideoCallbackFunc); // frames come by the rings as well
    SetVideoProcessRunning(true);
    for (uint32_t& stream : g_streamIndex)
        StartSender(&stream);
    const int error = StartThread("UnlockSignal", UnlockSignal, nullptr, &g_waker);
    g_isWaking = error == 0;
    if (error != 0)
        LogTrace("%s %d: start UnlockSignal failed, error = %d\n", __func__, __LINE__, error);
    LogTrace("%s %d: start!\n", __func__, __LINE__);
    return 0;
}

int StopVideoProcess()
{
    LogTrace("%s %d: SendAVStreamThread stop!\n", __func__, __LINE__);
    SetVideoProcessRunning(false);
    WakeStreamWaiters(); // the waker may have had its last turn just before; a sender must not miss this
    if (g_isWaking)
        pthread_join(g_waker, nullptr);
    g_isWaking = false;
    EmptyStreamBuffers();
    return 0;
}
