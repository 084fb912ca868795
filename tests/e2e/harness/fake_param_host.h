// Stand-in for the parameter host: owns the parameter block, the data segment and the queue.
#pragma once

#include "camera/parameter_block_layout.h"
#include "camera/parameter_message.h"
#include "common/little_endian.h"
#include "common/sysv_ipc.h"

inline constexpr uint16_t kServerPort = 34567; // what its block says

class FakeParamHost {
  public:
    FakeParamHost(); // a block with the port and the streams' sizes, else zero
    ~FakeParamHost();
    FakeParamHost(const FakeParamHost&) = delete;
    FakeParamHost& operator=(const FakeParamHost&) = delete;

    template <typename T> void Set(size_t offset, T value) { StoreLe(block_.get() + offset, value); }
    [[nodiscard]] int queue() const { return queue_; }

  private:
    int blockId_, dataId_, queue_;
    ShmAttachment block_;
};
