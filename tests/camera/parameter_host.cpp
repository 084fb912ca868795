#include "tests/camera/parameter_host.h"

#include <sys/msg.h>
#include <sys/shm.h>

#include <ostream>
#include <utility>

namespace {

constexpr key_t kKey = 14073;
constexpr key_t kBlockKey = 12930021;
constexpr size_t kBytes = 0x24000;
constexpr int kStop = -1;

struct Message {
    long type;
    int32_t word[5]; // code, source, reserved, length or result, offset
};

int OpenQueue()
{
    return msgget(kKey, IPC_CREAT | 0666);
}

Request ReadRequest(const Message& message)
{
    Request request{message.word[0], std::vector<uint8_t>(static_cast<size_t>(message.word[3])),
                    message.word[1], message.word[4]};
    auto* const data = static_cast<uint8_t*>(shmat(shmget(kKey, 0, 0), nullptr, SHM_RDONLY));
    memcpy(request.value.data(), data + request.offset, request.value.size());
    shmdt(data);
    return request;
}

} // namespace

void PrintTo(const Request& request, std::ostream* out)
{
    *out << "code " << request.code << " source " << request.source << " offset " << request.offset
         << " value";
    for (const uint8_t byte : request.value)
        *out << ' ' << int(byte);
}

ParameterHost::ParameterHost() : queueId_(OpenQueue()), thread_([this] { Serve(); })
{
    NewBlock();
}

ParameterHost::~ParameterHost()
{
    const Message stop{1, {kStop}};
    msgsnd(OpenQueue(), &stop, sizeof stop.word, 0);
    thread_.join();
}

void ParameterHost::AnswerWith(std::function<int(const Request&)> result)
{
    const std::lock_guard lock(mutex_);
    result_ = std::move(result);
}

void ParameterHost::RemoveQueueAtNextRequest()
{
    const std::lock_guard lock(mutex_);
    removesQueue_ = true;
}

void ParameterHost::WaitForAnswers(size_t requests)
{
    std::unique_lock lock(mutex_);
    answered_.wait(lock, [&] { return requests_.size() >= requests; });
}

std::vector<Request> ParameterHost::Take()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(requests_, {});
}

uint8_t* ParameterHost::NewBlock()
{
    if (block_ == nullptr)
        block_ = static_cast<uint8_t*>(shmat(shmget(kBlockKey, kBytes, IPC_CREAT | 0660), nullptr, 0));
    memset(block_, 0, kBytes);
    return block_;
}

void ParameterHost::Serve()
{
    Message message;
    while (msgrcv(queueId_, &message, sizeof message.word, 1, 0) >= 0 && message.word[0] != kStop) {
        const Request request = ReadRequest(message);
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        if (std::exchange(removesQueue_, false)) {
            msgctl(queueId_, IPC_RMID, nullptr);
            queueId_ = OpenQueue();
            continue;
        }
        message.type = request.source;
        message.word[3] = result_ ? result_(request) : message.word[3];
        msgsnd(queueId_, &message, sizeof message.word, 0);
        answered_.notify_all();
    }
}
