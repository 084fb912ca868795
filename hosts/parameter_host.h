// The parameter host: owns the parameter block, and the queue and data segment on which other processes
// ask for changes (docs/ipc.md, "Parameters").
//
// Each request gets exactly one reply, of the requester's process id as its type, after the value was
// taken out of the data segment. Messages that no process of the camera can have sent are logged and
// get none, because nobody would fetch it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "hosts/ipc_objects.h"
#include "hosts/parameter_store.h"
#include "hosts/queue_server.h"

class ParameterHost {
  public:
    // Adopts or makes the objects and fills the block; throws std::runtime_error when it cannot. The
    // reboot function runs on the queue's thread, before the reply, which Stop() lets out. Without a state
    // file the settings are those of an earlier life.
    ParameterHost(std::string stateFile, std::function<void()> onReboot,
                  const ParameterChanges& earlier = {});

    ParameterStore& store() { return *store_; }
    void Start() { queue_.Start(); }
    void Stop() { queue_.Stop(); }
    // Removes the objects, those that others use only when `always`. After Stop.
    void Release(bool always);

  private:
    std::optional<long> Answer(QueueText& message);
    int32_t Take(const struct ParameterMessage& request);

    HostSegment block_;
    HostSegment data_;
    std::unique_ptr<ParameterStore> store_;
    std::function<void()> onReboot_;
    QueueServer queue_;
};

// Removes the parameter host's objects, whoever uses them.
void PurgeParameterObjects();
