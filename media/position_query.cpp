#include "media/position_query.h"

#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <limits>

#include "common/clock.h"
#include "common/log.h"
#include "common/mutex.h"
#include "common/sysv_ipc.h"
#include "media/frame_source_state.h"

namespace {

// A host answers within a millisecond; one that has not after a hundred is busy or gone.
constexpr uint32_t kQuickPolls = 100;
constexpr uint32_t kQuickPollMs = 1;
constexpr uint32_t kSlowPollMs = 10;
constexpr int64_t kResendMs = 1000;
// More than a queue of the usual 16 KiB holds; a host that floods us does not hold us up.
constexpr int kMostStaleReplies = 1024;
constexpr size_t kShortestReplyBytes = (kWordResult + 1) * sizeof(uint32_t);

constexpr uint32_t kCommands[] = {kQueryStart, kQueryKeyFrame, kQueryRecord, kQueryReserved};

// Held for a whole exchange, the wait for the host included.
Mutex g_queryLock;

int OpenQueueLocked() REQUIRES(g_queryLock)
{
    std::atomic<int32_t>& queueId = gGetAVStreamSysInfo.queueId;
    if (queueId < 0)
        queueId = IpcMsgInit(kPositionQueueKey, kPositionQueueMode);
    return queueId;
}

// Notes why a queue call failed: a queue that was removed is opened again by the next exchange.
void NoteFailureLocked(int error) REQUIRES(g_queryLock)
{
    LogTrace("%s %d: position queue failed, errno = %d\n", "AVStreamQuery", __LINE__, error);
    if (error == EIDRM || error == EINVAL)
        gGetAVStreamSysInfo.queueId = -1;
}

ssize_t ReceiveLocked(int queue, int32_t clientType, PositionMessage* message) REQUIRES(g_queryLock)
{
    // Cut rather than refused: an overlong answer would lie in the queue for ever.
    return msgrcv(queue, message, PositionMessage::kTextBytes, clientType, IPC_NOWAIT | MSG_NOERROR);
}

void DrainLocked(int queue, int32_t clientType) REQUIRES(g_queryLock)
{
    PositionMessage stale{};
    for (int i = 0; i < kMostStaleReplies && ReceiveLocked(queue, clientType, &stale) >= 0; i++) {
    }
}

bool SendLocked(int queue, const PositionMessage& request) REQUIRES(g_queryLock)
{
    while (msgsnd(queue, &request, PositionMessage::kTextBytes, IPC_NOWAIT) != 0) {
        if (errno == EAGAIN) {
            // A queue full of answers to nobody would keep host and reader waiting for each other.
            DrainLocked(queue, static_cast<int32_t>(request.word[kWordClientType]));
            SleepMs(kSlowPollMs);
        } else if (errno != EINTR) {
            NoteFailureLocked(errno);
            return false;
        }
    }
    return true;
}

bool IsAnswerTo(const PositionMessage& request, const PositionMessage& answer)
{
    const bool isEchoed = std::find(std::begin(kCommands), std::end(kCommands), answer.word[kWordCommand]) !=
                          std::end(kCommands);
    if (!isEchoed)
        return true; // a host that does not echo its requests is believed
    return std::equal(request.word, request.word + kWordResult, answer.word);
}

// Messages in the queue; of one that is gone more than any holds.
msgqnum_t QueuedMessages(int queue)
{
    msqid_ds status{};
    return msgctl(queue, IPC_STAT, &status) == 0 ? status.msg_qnum : std::numeric_limits<msgqnum_t>::max();
}

// Waits for the answer. A request that has left the queue without one for a second, so that no more messages
// are there than the others before it, died with its host and is sent again.
bool AwaitLocked(int queue, const PositionMessage& request, msgqnum_t others, PositionMessage* reply)
    REQUIRES(g_queryLock)
{
    int64_t waitedFromMs = MonotonicMs();
    for (uint32_t poll = 0;; poll++) {
        PositionMessage answer{};
        const ssize_t bytes =
            ReceiveLocked(queue, static_cast<int32_t>(request.word[kWordClientType]), &answer);
        if (bytes >= static_cast<ssize_t>(kShortestReplyBytes) && IsAnswerTo(request, answer)) {
            *reply = answer;
            return true;
        }
        if (bytes < 0 && errno != ENOMSG && errno != EINTR) {
            NoteFailureLocked(errno);
            return false;
        }
        if (poll < kQuickPolls) {
            SleepMs(kQuickPollMs);
            continue;
        }
        SleepMs(kSlowPollMs);
        const int64_t nowMs = MonotonicMs();
        if (QueuedMessages(queue) > others) {
            waitedFromMs = nowMs;
        } else if (nowMs - waitedFromMs >= kResendMs) {
            if (!SendLocked(queue, request))
                return false;
            waitedFromMs = nowMs;
        }
    }
}

} // namespace

bool OpenPositionQueue()
{
    const Locked lock(g_queryLock);
    return OpenQueueLocked() >= 0;
}

void DrainPositionReplies(int32_t clientType)
{
    const Locked lock(g_queryLock);
    if (gGetAVStreamSysInfo.queueId >= 0)
        DrainLocked(gGetAVStreamSysInfo.queueId, clientType);
}

int AVStreamQuery(int32_t clientType, uint32_t index, uint32_t command, PositionMessage* message)
{
    if (index >= kRingCount || !IsClientType(clientType))
        return kFrameSourceBadIndex;
    if (message == nullptr)
        return kFrameSourceNoBuffer;
    *message = {.type = kPositionRequestType, .word = {static_cast<uint32_t>(clientType), command, index}};
    const PositionMessage request = *message;

    const Locked lock(g_queryLock);
    const int queue = OpenQueueLocked();
    if (queue < 0) {
        NoteFailureLocked(errno);
        return 0;
    }
    DrainLocked(queue, clientType);                 // answers to a request that was sent twice
    const msgqnum_t others = QueuedMessages(queue); // answers that nobody takes may lie there for ever
    if (SendLocked(queue, request))
        (void)AwaitLocked(queue, request, others, message); // a failed exchange leaves the result at 0
    return 0;
}

uint32_t QueryPosition(int32_t clientType, uint32_t index, uint32_t command)
{
    PositionMessage message{};
    (void)AVStreamQuery(clientType, index, command, &message); // a refused query too leaves 0
    return message.word[kWordResult];
}
