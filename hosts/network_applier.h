// Gives a network interface the address, mask and gateway that are set, as the parameter host of a camera
// does: all that was set is applied together, one second after the last of it, so that the answer to
// whoever set it still leaves by the old address.
//
// The address replaces the interface's first one. A default route over the interface is set when its
// gateway can be reached with the new address; the ones that were there go. An address or a mask that no
// host can have is logged, and then nothing changes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

// Addresses in network order.
struct NetworkSettings {
    std::optional<uint32_t> ulAddress;
    std::optional<uint32_t> ulMask;
    std::optional<uint32_t> ulGateway;
};

// Why no host can have that address and mask, or null.
const char* AddressProblem(uint32_t ulAddress, uint32_t ulMask);
// Whether a host of that address and mask reaches the gateway without another one.
bool IsReachableGateway(uint32_t ulGateway, uint32_t ulAddress, uint32_t ulMask);

class NetworkApplier {
  public:
    explicit NetworkApplier(std::string interface) : interface_(std::move(interface)) {}
    ~NetworkApplier() { Stop(); }
    NetworkApplier(const NetworkApplier&) = delete;
    NetworkApplier& operator=(const NetworkApplier&) = delete;

    // Takes kFieldAddress, kFieldNetmask or kFieldGateway. Any thread; waits for nothing.
    void Set(uint32_t field, uint32_t ulAddress);
    // Applies at once what has been set so far; from here on a thread applies what comes.
    void Start();
    // What is still waiting is not applied any more.
    void Stop();

  private:
    void Run();

    const std::string interface_;
    std::mutex mutex_; // guards all below
    std::condition_variable changed_;
    bool stopping_ = false;
    NetworkSettings waiting_;
    std::chrono::steady_clock::time_point due_ = std::chrono::steady_clock::time_point::max();
    std::thread thread_;
};
