#include "tests/camera/parameter_host.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/stat.h>

#include <fstream>
#include <utility>

#include "camera/camera_commands.h"

namespace {

constexpr int kStop = -1;

struct Message {
    long type;
    int32_t word[5]; // code, source, reserved, length or result, offset
};

int OpenQueue()
{
    return msgget(kQueueKey, IPC_CREAT | 0666);
}

Request ReadRequest(const Message& message)
{
    Request request{message.word[0], std::vector<uint8_t>(static_cast<size_t>(message.word[3])),
                    message.word[1], message.word[4]};
    auto* const data = static_cast<uint8_t*>(shmat(shmget(kQueueKey, 0, 0), nullptr, SHM_RDONLY));
    memcpy(request.value.data(), data + request.offset, request.value.size());
    shmdt(data);
    return request;
}

// Outside of a user namespace the mount would hide the machine's own directory.
bool IsIsolated()
{
    std::string first, second, count;
    std::ifstream("/proc/self/uid_map") >> first >> second >> count;
    return count != "4294967295";
}

// Gives the test program its parameter host, an empty /var/cfg and the initialised camera.
class CameraSetup : public testing::Environment {
    void SetUp() override
    {
        ASSERT_TRUE(IsIsolated()) << "run through tests/isolated.sh";
        ASSERT_EQ(mount("tmpfs", "/var", "tmpfs", 0, nullptr), 0);
        ASSERT_EQ(mkdir("/var/cfg", 0755), 0);
        Host();
        ASSERT_EQ(CameraInit(1, 5), 0);
    }
};

[[maybe_unused]] const auto* const kSetup = testing::AddGlobalTestEnvironment(new CameraSetup);

} // namespace

ParameterHost::ParameterHost()
    : queueId_(OpenQueue()),
      block_(static_cast<uint8_t*>(shmat(shmget(kBlockKey, kBlockBytes, IPC_CREAT | 0660), nullptr, 0))),
      thread_([this] { Serve(); })
{
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

ParameterHost& Host()
{
    static ParameterHost host;
    return host;
}

std::string ErrorOutputOf(const std::function<void()>& call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}
