#include "hosts/queue_server.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "common/clock.h"
#include "common/log.h"
#include "common/sysv_ipc.h"
#include "hosts/pause_point.h"

namespace {

// A blocking receive ends only for a message or a signal; this one has no other use.
constexpr int kWakeSignal = SIGURG;
constexpr uint32_t kWakeEveryMs = 10;
constexpr int kReplyTries = 200;
constexpr uint32_t kReplyRetryMs = 5;
constexpr uint32_t kReopenMs = 100;

void IgnoreWake(int) {}

void InstallWakeHandler()
{
    struct sigaction action {};
    action.sa_handler = IgnoreWake;
    sigaction(kWakeSignal, &action, nullptr);
}

} // namespace

QueueServer::QueueServer(const char* name, const char* asked, key_t key, int mode, long requestType,
                         size_t textBytes, AnswerFunction answer)
    : name_(name), asked_(asked), key_(key), mode_(mode), requestType_(requestType), textBytes_(textBytes),
      answer_(std::move(answer))
{
}

void QueueServer::Start()
{
    InstallWakeHandler();
    ended_ = false;
    thread_ = std::thread([this] { Run(); });
}

void QueueServer::Stop()
{
    if (!thread_.joinable())
        return;
    stopping_ = true;
    // A signal that arrives just before the receive begins is lost, so it is repeated.
    while (!ended_) {
        pthread_kill(thread_.native_handle(), kWakeSignal);
        SleepMs(kWakeEveryMs);
    }
    thread_.join();
}

void QueueServer::Run()
{
    pthread_setname_np(pthread_self(), name_);
    int id = -1;
    while (!stopping_) {
        if (id < 0 && (id = IpcMsgInit(key_, mode_)) < 0) {
            LogError("%s: no message queue: %s\n", name_, strerror(errno));
            SleepMs(kReopenMs);
            continue;
        }
        QueueText message{};
        const ssize_t received = msgrcv(id, &message, sizeof message.word, requestType_, MSG_NOERROR);
        if (received >= 0) {
            Serve(id, message, static_cast<size_t>(received));
        } else if (errno != EINTR) {
            LogWarn("%s: receive failed, opening the queue again: %s\n", name_, strerror(errno));
            id = -1;
            SleepMs(kReopenMs);
        }
    }
    ended_ = true;
}

void QueueServer::Serve(int id, QueueText& message, size_t received)
{
    if (received != textBytes_) {
        LogWarn("%s: dropped a message of %zu bytes, %zu expected\n", name_, received, textBytes_);
        return;
    }
    ReachMoment(asked_, "before-answer");
    if (const std::optional<long> type = answer_(message)) {
        message.type = *type;
        Reply(id, message);
        ReachMoment(asked_, "after-answer");
    }
}

void QueueServer::Reply(int id, const QueueText& message)
{
    int attempt = 0;
    while (msgsnd(id, &message, textBytes_, IPC_NOWAIT) < 0) {
        const bool full = errno == EAGAIN || errno == EINTR;
        if (!full || stopping_ || ++attempt == kReplyTries) {
            LogError("%s: a reply of type %ld was not sent: %s\n", name_, message.type, strerror(errno));
            return;
        }
        SleepMs(kReplyRetryMs);
    }
}
