#include "tests/e2e/harness/fake_param_host.h"

#include <sys/msg.h>
#include <sys/shm.h>

#include <cstring>
#include <stdexcept>

FakeParamHost::FakeParamHost()
    : blockId_(IpcShareMemInit(kSysConfigKey, kSysConfigBytes, kSysConfigMode)),
      dataId_(IpcShareMemInit(kParameterKey, kParameterDataBytes, kParameterDataMode)),
      queue_(IpcMsgInit(kParameterKey, kParameterQueueMode)), block_(blockId_)
{
    if (!block_ || dataId_ < 0 || queue_ < 0)
        throw std::runtime_error("no parameter block; run in tests/sandbox.sh");
    memset(block_.get(), 0, kSysConfigBytes);
    Set(block::kVelmoraPort, kServerPort);
    Set<uint8_t>(block::kStreamMode, 1);
    Set<uint16_t>(block::kWidth(0), 2560);
    Set<uint16_t>(block::kHeight(0), 1440);
    Set<int32_t>(block::kFrameRate(0), 12);
    Set<uint16_t>(block::kWidth(1), 720);
    Set<uint16_t>(block::kHeight(1), 480);
    Set<int32_t>(block::kFrameRate(1), 10);
}

FakeParamHost::~FakeParamHost()
{
    shmctl(blockId_, IPC_RMID, nullptr);
    shmctl(dataId_, IPC_RMID, nullptr);
    msgctl(queue_, IPC_RMID, nullptr);
}
