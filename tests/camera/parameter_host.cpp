#include "tests/camera/parameter_host.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "camera/camera_commands.h"

namespace {

constexpr int kStop = -1;

struct Message {
    long type;
    int32_t word[100]; // code, source, reserved, length or result, offset, more than there should be
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

// Gives the test program its parameter host, an empty /var/cfg and the initialised camera.
class CameraSetup : public testing::Environment {
    void SetUp() override
    {
        ASSERT_EQ(getpid(), 1)
            << "run through tests/isolated.sh: the mount would hide the machine's directory";
        ASSERT_EQ(mount("tmpfs", "/var", "tmpfs", 0, nullptr), 0);
        ASSERT_EQ(mkdir("/var/cfg", 0755), 0);
        Host();
        ASSERT_EQ(CameraInit(1, 5), 0);
    }
};

[[maybe_unused]] const auto* const kSetup = testing::AddGlobalTestEnvironment(new CameraSetup);

} // namespace

ParameterHost::ParameterHost()
    : block(static_cast<uint8_t*>(shmat(shmget(kBlockKey, kBlockBytes, IPC_CREAT | 0660), nullptr, 0))),
      queueId_(OpenQueue()), thread_([this] { Serve(); })
{
}

ParameterHost::~ParameterHost()
{
    const Message stop{1, {kStop}};
    msgsnd(OpenQueue(), &stop, 20, 0);
    thread_.join();
}

std::vector<Request> ParameterHost::Take()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(requests_, {});
}

void ParameterHost::Serve()
{
    Message message{};
    while (msgrcv(queueId_, &message, 20, 1, 0) >= 0 && message.word[0] != kStop) {
        const std::lock_guard lock(mutex_);
        const Request& request = requests_.emplace_back(ReadRequest(message));
        if (removesQueue.exchange(false)) {
            msgctl(queueId_, IPC_RMID, nullptr);
            queueId_ = OpenQueue();
            continue;
        }
        message.type = request.source;
        if (answersMinus77 || answersFirstByte)
            message.word[3] = answersMinus77 ? -77 : request.value[0];
        msgsnd(queueId_, &message, answerBytes, 0);
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
