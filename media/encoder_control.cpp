#include "media/encoder_control.h"

#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/clock.h"
#include "common/log.h"
#include "common/mutex.h"
#include "media/frame_source.h"
#include "media/ring_layout.h"

namespace {

constexpr int64_t kMostMs = 1000; // for a whole exchange
// A host answers within a millisecond; one that has not after fifty is busy or gone.
constexpr int64_t kQuickMs = 50;
constexpr uint32_t kQuickPollMs = 1;
constexpr uint32_t kSlowPollMs = 10;
// More than a queue of the usual 16 KiB holds; a host that floods us does not hold us up.
constexpr int kMostStaleAnswers = 1024;
constexpr size_t kWordPayload = kControlWordResult + 1;
constexpr size_t kShortestAnswerBytes = kWordPayload * sizeof(uint32_t);
static_assert(kWordPayload * sizeof(uint32_t) + kControlPayloadBytes == ControlMessage::kTextBytes);

// Held for a whole exchange, the wait for the host included.
Mutex g_controlLock;

struct AVSysInfo {
    int32_t iInit; // 1 once the queue is open
    int32_t iQueueId;
};
constexpr AVSysInfo kNotOpen{.iInit = 0, .iQueueId = -1};
AVSysInfo gAVSysInfo GUARDED_BY(g_controlLock) = kNotOpen;

enum class Outcome : uint8_t { kDone, kFailed, kQueueGone };

int OpenLocked() REQUIRES(g_controlLock)
{
    if (gAVSysInfo.iInit == 1)
        return 0;
    gAVSysInfo.iQueueId = IpcMsgInit(kControlQueueKey, kControlQueueMode);
    gAVSysInfo.iInit = gAVSysInfo.iQueueId >= 0 ? 1 : 0;
    return gAVSysInfo.iInit == 1 ? 0 : kFrameSourceNoQueue;
}

// What the failure of a queue call means; a queue that was removed is forgotten.
Outcome FailLocked(int error) REQUIRES(g_controlLock)
{
    LogTrace("%s %d: control queue failed, errno = %d\n", "MediaHostRequest", __LINE__, error);
    if (error != EIDRM && error != EINVAL)
        return Outcome::kFailed;
    gAVSysInfo = kNotOpen;
    return Outcome::kQueueGone;
}

ssize_t ReceiveLocked(ControlMessage* answer) REQUIRES(g_controlLock)
{
    // Cut rather than refused: an overlong answer would lie in the queue for ever.
    return msgrcv(gAVSysInfo.iQueueId, answer, ControlMessage::kTextBytes, kControlReplyType,
                  IPC_NOWAIT | MSG_NOERROR);
}

Outcome DrainLocked() REQUIRES(g_controlLock)
{
    ControlMessage stale{};
    for (int i = 0; i < kMostStaleAnswers; i++)
        if (ReceiveLocked(&stale) < 0)
            return errno == ENOMSG || errno == EINTR ? Outcome::kDone : FailLocked(errno);
    return Outcome::kDone;
}

// Sleeps until the next look at the queue. False when the exchange has lasted as long as it may.
bool PauseUntil(int64_t deadlineMs)
{
    const int64_t leftMs = deadlineMs - MonotonicMs();
    if (leftMs > 0)
        SleepMs(leftMs > kMostMs - kQuickMs ? kQuickPollMs : kSlowPollMs);
    return leftMs > 0;
}

Outcome SendLocked(const ControlMessage& request, int64_t deadlineMs) REQUIRES(g_controlLock)
{
    while (msgsnd(gAVSysInfo.iQueueId, &request, ControlMessage::kTextBytes, IPC_NOWAIT) != 0) {
        if (errno != EAGAIN && errno != EINTR)
            return FailLocked(errno);
        // The queue is full. Answers to nobody would keep host and sender waiting for each other.
        if (const Outcome drained = DrainLocked(); drained != Outcome::kDone)
            return drained;
        if (!PauseUntil(deadlineMs))
            return FailLocked(EAGAIN);
    }
    return Outcome::kDone;
}

// A host that leaves the order's words in its answer is taken at them: this may be the late answer to the
// order before. One that does not is believed.
bool IsAnswerTo(const ControlMessage& request, const ControlMessage& answer)
{
    const auto isEchoed = [&answer](const ControlCommand& row) {
        return answer.word[kControlWordReplyType] == static_cast<uint32_t>(kControlReplyType) &&
               answer.word[kControlWordCommand] == row.command;
    };
    return std::none_of(std::begin(kControlCommands), std::end(kControlCommands), isEchoed) ||
           std::equal(request.word, request.word + kControlWordResult, answer.word);
}

Outcome AwaitLocked(ControlMessage* message, int64_t deadlineMs) REQUIRES(g_controlLock)
{
    do {
        ControlMessage answer{};
        const ssize_t bytes = ReceiveLocked(&answer);
        if (bytes >= static_cast<ssize_t>(kShortestAnswerBytes) && IsAnswerTo(*message, answer)) {
            *message = answer;
            return Outcome::kDone;
        }
        if (bytes < 0 && errno != ENOMSG && errno != EINTR)
            return FailLocked(errno);
    } while (PauseUntil(deadlineMs));
    return FailLocked(ETIMEDOUT);
}

// Drains and sends. A queue that turns out to have been removed is opened again, once.
Outcome OrderLocked(const ControlMessage& request, int64_t deadlineMs) REQUIRES(g_controlLock)
{
    Outcome outcome = Outcome::kQueueGone;
    for (int attempt = 0; attempt < 2 && outcome == Outcome::kQueueGone && OpenLocked() == 0; attempt++) {
        outcome = DrainLocked();
        if (outcome == Outcome::kDone)
            outcome = SendLocked(request, deadlineMs);
    }
    return outcome;
}

// The result word stays 0 when the exchange fails.
int Exchange(uint32_t command, int32_t argument, const uint8_t* payload)
{
    ControlMessage message{
        .type = kControlRequestType,
        .word = {static_cast<uint32_t>(kControlReplyType), command, static_cast<uint32_t>(argument)}};
    if (payload != nullptr)
        memcpy(message.word + kWordPayload, payload, kControlPayloadBytes);
    const Locked lock(g_controlLock);
    const int64_t deadlineMs = MonotonicMs() + kMostMs;
    if (OrderLocked(message, deadlineMs) == Outcome::kDone)
        (void)AwaitLocked(&message, deadlineMs); // logged if it failed
    else if (gAVSysInfo.iInit == 0)
        return kFrameSourceNoQueue;
    return static_cast<int32_t>(message.word[kControlWordResult]);
}

} // namespace

int MediaHostCtrlInit()
{
    const Locked lock(g_controlLock);
    return OpenLocked();
}

int MediaHostRequest(uint32_t command, int32_t argument)
{
    const auto* const row = std::find_if(std::begin(kControlCommands), std::end(kControlCommands),
                                         [command](const ControlCommand& r) { return r.command == command; });
    if (row == std::end(kControlCommands) || row->argument == kPayload)
        return kFrameSourceBadIndex;
    return Exchange(command, row->argument == kNumber ? argument : 0, nullptr);
}

int MediaHostPayloadRequest(const uint8_t* payload)
{
    return payload != nullptr ? Exchange(kCommandWithPayload, 0, payload) : kFrameSourceBadIndex;
}

int MediaHostVideoForceIFrame(int32_t stream)
{
    LogTrace("%s %d: MediaHostVideoForceIFrame VideoType=%d\n", __func__, __LINE__, stream);
    return MediaHostRequest(kCommandForceIFrame, stream);
}
