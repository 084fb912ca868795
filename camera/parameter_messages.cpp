#include "camera/parameter_messages.h"

#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "camera/parameter_fields.h"
#include "camera/parameter_lock.h"
#include "camera/parameter_message.h"
#include "common/clock.h"
#include "common/log.h"
#include "common/sysv_ipc.h"

std::atomic<int> gSysProcId{0};

namespace {

constexpr int kProcessIdWithoutMessaging = 1;
constexpr int kHighestProcessId = 15;
constexpr int kNoQueue = -1;
// More than a queue of the usual 16 KiB holds; a host that floods us does not hold us up.
constexpr int kMostStaleAnswers = 1024;
constexpr size_t kShortestAnswerBytes = kParameterTextBytes - sizeof(int32_t); // the offset says nothing
constexpr uint32_t kQueuePollMs = 10;
// A host that has taken the request answers within milliseconds. One that has not in this time answers
// with codes of its own.
constexpr int64_t kOwnAnswerMs = 2000;
// In all, because what lies in the queue may be nobody's: an answer to a process that has died stays there.
constexpr int64_t kMostOwnAnswerMs = 60000;
constexpr uint32_t kMostOwedMs = 1000; // that a late answer to a broken-off wait is waited for

// Written under the send lock, or before it exists.
std::atomic<int> g_queueId{kNoQueue};
// The host's answers carry the code of their request. Believed until the contrary is seen.
std::atomic<bool> g_answersCarryCodes{true};
// The queue that will still bring the answer to a request whose wait was broken off. Under the send lock.
int g_owingQueue = kNoQueue;
// A request of ours may still lie in the queue. Under the send lock.
bool g_mayHaveLeftRequest = false;

// Message codes whose sender does more than the others'.
struct SpecialSender {
    const char* announcement; // printed before sending
    int32_t iCode;
    bool repeatsReceive; // when a signal interrupts it
    bool comparesLength; // the host answers with the length that it stored
};

constexpr SpecialSender kPlainSender = {nullptr, -1, false, false};
constexpr SpecialSender kSpecialSenders[] = {
    {nullptr, 193, true, false},
    {nullptr, 247, false, true},
    {"SetSysRTSPEncrypt", 281, false, false},
    {"SetSysPalloSslEncrypt", 282, false, false},
    {"SetSysPalloPushImageEnable", 283, false, false},
};

const SpecialSender& SenderOf(int32_t code)
{
    for (const SpecialSender& sender : kSpecialSenders)
        if (sender.iCode == code)
            return sender;
    return kPlainSender;
}

bool HasSlot(int processId)
{
    return processId >= kFirstProcessWithSlot && processId <= kLastProcessWithSlot;
}

int OpenQueue()
{
    int id = msgget(kParameterKey, 0);
    if (id < 0) {
        id = msgget(kParameterKey, IPC_CREAT | kParameterQueueMode);
        fprintf(stderr, "Creat queue id:%d\n", id);
    }
    fprintf(stderr, "queue id:%d\n", id);
    return id;
}

// After a failed queue call: a removed queue is opened again by the next exchange.
void ForgetRemovedQueue()
{
    if (errno == EIDRM || errno == EINVAL)
        g_queueId.store(kNoQueue);
}

// A longer message of our type is cut rather than left in the queue, where it would fail every exchange.
ssize_t Receive(int queueId, ParameterMessage* message, int processId, int flags)
{
    return msgrcv(queueId, message, kParameterTextBytes, processId, MSG_NOERROR | flags);
}

// Process id 1 has no answers: messages of type 1 are other processes' requests.
void DrainAnswers(int queueId, int processId)
{
    ParameterMessage answer;
    for (int i = 0; i < kMostStaleAnswers && HasSlot(processId); i++)
        if (Receive(queueId, &answer, processId, IPC_NOWAIT) < 0)
            break;
}

// The segment is looked up each time, since its owner may have replaced it.
bool CopyToSlot(size_t offset, const void* value, size_t length)
{
    const int id = IpcShareMemInit(kParameterKey, kParameterDataBytes, kParameterDataMode);
    if (id < 0 || IpcShareMemBytes(id) < offset + length)
        return false;
    const ShmAttachment data(id);
    if (!data)
        return false;
    memcpy(data.get() + offset, value, length);
    return true;
}

// Asking for a request without room for one leaves it where it is.
bool HoldsRequest(int queueId)
{
    ParameterMessage none;
    return msgrcv(queueId, &none, 0, kParameterRequestType, IPC_NOWAIT) < 0 && errno == E2BIG;
}

// Waits until the host has taken a request that a former life of this process left, or a wait that was given
// up: the host reads the value from our slot only then. While the send lock is held no living process has a
// request in the queue, so any that lies there counts. Returns whether there was one.
bool OutwaitLeftRequest(int queueId)
{
    if (!g_mayHaveLeftRequest || queueId == kNoQueue || !HoldsRequest(queueId))
        return false;
    LogTrace("%s %d: a request is left in the queue, waiting for the host to take it\n", __func__, __LINE__);
    do
        SleepMs(kQueuePollMs);
    while (HoldsRequest(queueId));
    return true;
}

// Takes the answer that a broken-off wait or a former life has left to come: the next exchange would believe
// it, and change the slot before the host has read it. A host that has not answered by now will not.
void TakeOwedAnswer(int queueId, int processId)
{
    ParameterMessage answer;
    const bool wasLeft = OutwaitLeftRequest(queueId);
    const bool isOwed = wasLeft || (g_owingQueue != kNoQueue && g_owingQueue == queueId);
    for (uint32_t ms = 0; isOwed && ms < kMostOwedMs; ms++) {
        if (Receive(queueId, &answer, processId, IPC_NOWAIT) >= 0)
            break;
        SleepMs(1);
    }
    g_owingQueue = kNoQueue;
    g_mayHaveLeftRequest = false;
}

// Waits for room in the queue. Answers to nobody are thrown away, those of an earlier exchange and those
// that fill the queue: host and sender would wait for each other.
bool SendRequest(int queueId, const ParameterMessage& request)
{
    DrainAnswers(queueId, request.iSource);
    while (msgsnd(queueId, &request, kParameterTextBytes, IPC_NOWAIT) != 0) {
        if (errno != EAGAIN) {
            ForgetRemovedQueue();
            return false;
        }
        DrainAnswers(queueId, request.iSource);
        SleepMs(kQueuePollMs);
    }
    return true;
}

// Whether the answer says that it is to another request of ours: to one that an earlier life of this
// process left with the host.
bool IsToAnotherRequest(const ParameterMessage& request, const ParameterMessage& answer, ssize_t bytes)
{
    return g_answersCarryCodes.load() && bytes >= static_cast<ssize_t>(kShortestAnswerBytes) &&
           answer.iSource == request.iSource && answer.iCode != request.iCode &&
           IsParameterCode(answer.iCode);
}

bool IsQueueEmpty(int queueId)
{
    msqid_ds status{};
    return msgctl(queueId, IPC_STAT, &status) == 0 && status.msg_qnum == 0;
}

// Waits for our own answer after that to another request, as long as our request may lie in the queue and
// for a while after that. Then the host is believed, whatever code its answers have.
ssize_t AwaitOwnAnswer(int queueId, const ParameterMessage& request, ParameterMessage* answer, ssize_t bytes)
{
    LogTrace("%s %d: the answer to code %d is none to code %d, waiting for that\n", __func__, __LINE__,
             answer->iCode, request.iCode);
    const int64_t endMs = MonotonicMs() + kMostOwnAnswerMs;
    for (int64_t untilMs = MonotonicMs() + kOwnAnswerMs; MonotonicMs() < std::min(untilMs, endMs);) {
        ParameterMessage next = request;
        const ssize_t received = Receive(queueId, &next, request.iSource, IPC_NOWAIT);
        if (received < 0 && errno != ENOMSG && errno != EINTR)
            return received;
        if (received >= 0) {
            *answer = next;
            bytes = received;
            if (!IsToAnotherRequest(request, next, received))
                return received;
        }
        SleepMs(kQueuePollMs);
        if (!IsQueueEmpty(queueId))
            untilMs = MonotonicMs() + kOwnAnswerMs;
    }
    g_answersCarryCodes.store(false);
    g_mayHaveLeftRequest = true;
    return bytes;
}

// Receives the answer into the request's record, which keeps its words when that fails.
void ReceiveAnswer(int queueId, ParameterMessage* message, bool repeatsReceive)
{
    ParameterMessage answer = *message;
    ssize_t received;
    do
        received = Receive(queueId, &answer, message->iSource, 0);
    while (received < 0 && errno == EINTR && repeatsReceive);
    if (IsToAnotherRequest(*message, answer, received))
        received = AwaitOwnAnswer(queueId, *message, &answer, received);
    if (received >= 0) {
        *message = answer;
        return;
    }
    g_owingQueue = queueId;
    g_mayHaveLeftRequest = true;
    ForgetRemovedQueue();
}

// Sends the request and receives its answer into the same record. A queue that turns out to have been
// removed is opened again, once.
void ExchangeMessage(ParameterMessage* message, bool repeatsReceive)
{
    for (int attempt = 0; attempt < 2; attempt++) {
        if (g_queueId.load() == kNoQueue)
            g_queueId.store(OpenQueue());
        const int queueId = g_queueId.load();
        if (SendRequest(queueId, *message))
            return ReceiveAnswer(queueId, message, repeatsReceive);
        if (g_queueId.load() != kNoQueue)
            return; // nobody will answer
    }
}

bool MaySend(int processId, size_t length)
{
    if (HasSlot(processId) && length <= kParameterSlotBytes)
        return true;
    LogTrace("%s %d: process %d cannot send a value of %zu bytes, ignoring\n", __func__, __LINE__, processId,
             length);
    return false;
}

int FailInit(const char* line)
{
    gSysProcId.store(kProcessIdWithoutMessaging);
    fputs(line, stderr);
    return -1;
}

} // namespace

int32_t SendParameterMessage(int32_t code, const void* value, size_t length)
{
    const SpecialSender& sender = SenderOf(code);
    if (sender.announcement != nullptr)
        fputs(sender.announcement, stderr);
    const int processId = gSysProcId.load();
    if (!MaySend(processId, length))
        return -1;
    const size_t offset = ParameterSlotOffset(processId);
    ParameterMessage message{kParameterRequestType,       code, processId, 0, static_cast<int32_t>(length),
                             static_cast<int32_t>(offset)};
    if (SemWait() != 0)
        return -1;
    TakeOwedAnswer(g_queueId.load(), processId);
    const bool copied = CopyToSlot(offset, value, length);
    if (copied)
        ExchangeMessage(&message, sender.repeatsReceive);
    (void)SemRelease(); // held since SemWait
    if (!copied) {
        LogTrace("%s %d: no data segment for code %d, ignoring\n", __func__, __LINE__, code);
        return -1;
    }
    if (sender.comparesLength)
        return message.iLengthOrResult == static_cast<int32_t>(length) ? 0 : -1;
    return message.iLengthOrResult;
}

int32_t ControlSystemData(uint32_t field, const void* value, size_t length)
{
    if (field == kFieldSetDns)
        puts(" control systemdata SFIELD_SET_DNS");
    if (value == nullptr)
        return -1;
    if (field == kFieldNoMessage)
        return 0;
    const std::optional<int32_t> code = ParameterCode(field);
    return code ? SendParameterMessage(*code, value, length) : -1;
}

int SysDrvInit(int processId)
{
    if (processId < 1 || processId > kHighestProcessId)
        return FailInit("Error:Invalid Parameter\n");
    gSysProcId.store(processId);
    if (IpcShareMemInit(kParameterKey, kParameterDataBytes, kParameterDataMode) < 0)
        return FailInit("Error:Share Memory init fail\n");
    (void)Sem_Creat(); // whether there is a lock counts, and it said why there is none
    if (!SemExists())
        return FailInit("Error:No more memory to create semaphore\n");
    const int queueId = OpenQueue();
    if (queueId < 0) {
        (void)DestroySem();
        return FailInit("Error:Msg_Init fail\n");
    }
    if (SemWait() != 0)
        return FailInit(""); // it said why
    g_queueId.store(queueId);
    g_answersCarryCodes.store(true);
    g_mayHaveLeftRequest = true;
    DrainAnswers(queueId, processId);
    (void)SemRelease(); // held since SemWait
    fprintf(stderr, "%s %d gSysProcId %d\n", "SysDrvInit", 86, processId);
    return 0;
}

int SysDrvExit()
{
    gSysProcId.store(kProcessIdWithoutMessaging);
    (void)DestroySem(); // it reports its failure
    return 0;
}
