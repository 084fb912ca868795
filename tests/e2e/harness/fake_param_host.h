// Stand-in for the parameter host: owns the parameter block, the data segment and the queue. It answers
// nothing, since the server asks for nothing yet.
#pragma once

#include <sys/msg.h>
#include <sys/shm.h>

#include <cstring>
#include <stdexcept>

#include "camera/parameter_block_layout.h"
#include "camera/parameter_message.h"
#include "common/little_endian.h"
#include "common/sysv_ipc.h"

inline constexpr uint16_t kServerPort = 9000; // what its block says

class FakeParamHost {
  public:
    FakeParamHost()
    {
        if (!block_ || dataId_ < 0 || queue_ < 0)
            throw std::runtime_error("no parameter block; run in tests/sandbox.sh");
        memset(block_.get(), 0, kSysConfigBytes);
        Set(block::kVelmoraPort, kServerPort);
        Set<uint16_t>(block::kWidth(0), 2560);
        Set<uint16_t>(block::kHeight(0), 1440);
        Set<int32_t>(block::kFrameRate(0), 12);
        Set<uint16_t>(block::kWidth(1), 720);
        Set<uint16_t>(block::kHeight(1), 480);
        Set<int32_t>(block::kFrameRate(1), 10);
    }
    ~FakeParamHost()
    {
        shmctl(blockId_, IPC_RMID, nullptr);
        shmctl(dataId_, IPC_RMID, nullptr);
        msgctl(queue_, IPC_RMID, nullptr);
    }
    FakeParamHost(const FakeParamHost&) = delete;
    FakeParamHost& operator=(const FakeParamHost&) = delete;

    template <typename T> void Set(size_t offset, T value) { StoreLe(block_.get() + offset, value); }

  private:
    int blockId_ = IpcShareMemInit(kSysConfigKey, kSysConfigBytes, kSysConfigMode);
    int dataId_ = IpcShareMemInit(kParameterKey, kParameterDataBytes, kParameterDataMode);
    int queue_ = IpcMsgInit(kParameterKey, kParameterQueueMode);
    ShmAttachment block_{blockId_};
};
