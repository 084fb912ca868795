// Fuzz target: an encoder host that lies (fuzz/ring_host.h). The input is read event by event: at each sleep
// of the server, each question to the host and in the middle of each frame copy it says what happens.
//
// Judged are: reads outside the segment (memory that cannot be read lies around it), passes without a rest
// or progress, frames that are not one record as it stood, what reaches the watchers' sockets, the time of
// an exchange with the host, and whether an honest host's key frame is read within two seconds.
#include "common/log.h"
#include "fuzz/ring_host.h"
#include "fuzz/ring_oracle.h"
#include "media/encoder_control.h"
#include "media/frame_source_state.h"
#include "media/ring_reader.h"
#include "media/stream_buffers.h"
#include "media/stream_fanout.h"
#include "media/talk_reader.h"
#include "protocol/send_mutex.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int32_t kType = 10;
constexpr int64_t kRecoveryMs = 2000;
constexpr int64_t kMostControlMs = 1100;

int TakeFrame(uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo* header)
{
    if (source != header->AVSource || stream != g_stream)
        Violation("a frame under another's name");
    const Bytes all(payload, payload + header->AVDataLen); // all of it can be read
    NoteFrame(all.data(), *header);
    return 0;
}

void Start(uint32_t stream)
{
    g_stream = stream;
    g_nowUs = (g_nowUs / 1000000 + 2) * 1000000; // time goes on from input to input
    g_readAt = 0;
    StartHost();
    StartWatchers();
    gGetAVStreamSysInfo.queueId = kPositionQueueKey;
}

void RunReader(uint32_t stream)
{
    Start(stream);
    if (stream < kLiveStreams) {
        (void)StartAVStream(kType);
        AfterSleep(0); // until the reader runs
    } else if (stream == kTalkAudio) {
        (void)GetVoiceTalkAVStreamInit(kType, TakeFrame, nullptr);
    } else {
        g_clients[kType].frame = TakeFrame;
    }
    gGetAVStreamSysInfo.StreamSharememID[stream] = g_host.segment->id;
    g_clients[kType].reader[stream].isRunning = true;
    ReaderArgument argument{.clientType = kType, .index = stream};
    (stream == kTalkAudio ? AVStreamGetAudioTalkThread : AVStreamGetAVDataThread)(&argument);
    ChangeLag(0);
    SendWaitingFrames();
    for (const Segment& segment : g_segments)
        if (segment.isAttached)
            Violation("a segment was left attached");
}

// One order to the encoder host.
void GiveOrder()
{
    uint8_t payload[16];
    std::generate(std::begin(payload), std::end(payload), [] { return g_input.Byte(); });
    const uint8_t how = payload[0] % 4;
    if (how == 0)
        (void)MediaHostVideoForceIFrame(payload[1]);
    else if (how == 1)
        (void)MediaHostPayloadRequest(payload);
    else
        (void)MediaHostRequest(how == 2 ? kControlCommands[payload[1] % std::size(kControlCommands)].command
                                        : g_input.Word(),
                               1);
}

void RunControl()
{
    Start(kMainStream);
    while (!g_input.IsAtEnd()) {
        const int64_t startMs = NowMs();
        GiveOrder();
        if (NowMs() - startMs > kMostControlMs)
            Violation("an order took more than a second");
    }
}

} // namespace

void EndReader()
{
    g_clients[kType].reader[g_stream].isRunning = false;
}

void AfterSleep(int64_t sleptUs)
{
    NoteSleep(sleptUs);
    if (IsHonest())
        WriteHonestFrames();
    else if (g_input.IsAtEnd())
        TurnHonest();
    else
        TakeTurn();
    if (IsHonest() && NowMs() - g_host.honestSinceMs > kRecoveryMs) {
        if (g_stream != kTalkAudio)
            Violation("no key frame within two seconds of an honest host");
        EndReader();
    }
    SendWaitingFrames();
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    MakeRooms();
    if (getenv("FUZZ_LOG") != nullptr) // what the server logs about one input
        LogInit("ring_fuzz", 3);
    CreateStreamLocks();
    CreateSendMutex();
    SetVideoProcessRunning(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t bytes)
{
    static constexpr uint32_t kStreams[] = {kMainStream,   kMainStream,  kMainStream, kSecondStream,
                                            kSecondStream, kThirdStream, kTalkAudio};
    g_input = {data, data + bytes};
    g_isServing = true;
    const uint8_t what = g_input.Byte() % 8;
    if (what < std::size(kStreams))
        RunReader(kStreams[what]);
    else
        RunControl();
    g_isServing = false;
    return 0;
}
