#include "tests/camera/parameter_host.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>
#include <utility>

#include "camera/camera_commands.h"
#include "common/sysv_ipc.h"

namespace {

struct Message {
    long type;
    int32_t word[100]; // code, source, reserved, length or result, offset, more than there should be
};

// Gives the test program its parameter host, an empty /var/cfg and the initialised camera.
class CameraSetup : public testing::Environment {
    void SetUp() override
    {
        if (getenv("SANDBOX") == nullptr) { // which has a /var/cfg of its own
            ASSERT_EQ(getpid(), 1) << "run through tests/isolated.sh, where the mount hides nothing";
            ASSERT_EQ(mount("tmpfs", "/var", "tmpfs", 0, nullptr), 0);
            ASSERT_EQ(mkdir("/var/cfg", 0755), 0);
        }
        Host();
        ASSERT_EQ(CameraInit(1, 5), 0);
    }
};

[[maybe_unused]] const auto* const kSetup = testing::AddGlobalTestEnvironment(new CameraSetup);

} // namespace

ParameterHost::ParameterHost()
    : block(static_cast<uint8_t*>(shmat(shmget(kBlockKey, kBlockBytes, IPC_CREAT | 0660), nullptr, 0))),
      queueId_(IpcMsgInit(kQueueKey, 0666))
{
    std::thread([this] { Serve(); }).detach();
}

std::vector<Request> ParameterHost::Take()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(requests_, {});
}

std::string ParameterHost::TakeText()
{
    std::string text;
    char digits[4];
    for (const auto& [code, value, source, offset] : Take()) {
        text += (text.empty() ? "" : " ") + std::to_string(code) + ":";
        for (const uint8_t byte : value) {
            snprintf(digits, sizeof digits, "%02X", byte);
            text += digits;
        }
        if (source != 7 || offset != 61440)
            text += "@" + std::to_string(source) + ":" + std::to_string(offset);
    }
    return text;
}

void ParameterHost::Serve()
{
    Message message{};
    auto& [type, word] = message;
    while (msgrcv(queueId_, &message, 20, 1, 0) >= 0) {
        const std::lock_guard lock(mutex_);
        const ShmAttachment data(shmget(kQueueKey, 0, 0));
        const uint8_t* const slot = data.get() + word[4];
        requests_.push_back({word[0], {slot, slot + word[3]}, word[1], word[4]});
        if (answersFirstByte)
            word[3] = *slot;
        type = word[1];
        const Message stray{type, {strayCode, word[1], 0, 99}};
        if (strayCode != kNoStray)
            msgsnd(queueId_, &stray, 20, 0);
        if (answerCode != kNoStray)
            word[0] = answerCode;
        if (!removesQueue.exchange(false)) {
            msgsnd(queueId_, &message, answerBytes, 0);
            continue;
        }
        msgctl(queueId_, IPC_RMID, nullptr);
        queueId_ = IpcMsgInit(kQueueKey, 0666);
    }
}

ParameterHost& Host()
{
    static auto* const host = new ParameterHost;
    return *host;
}

std::string ErrorOutputOf(const std::function<void()>& call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}
