// Looks at every IPv4 packet that a camera sends onto the local network, and counts those that go neither
// to this machine's own connections nor to everybody on the search port.
//
// Needs the right to open packet sockets. It has a thread of its own.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "common/unique_fd.h"
#include "recorder/stress/figures.h"

class PacketWatch {
  public:
    // Watches the interface for packets from `camera`; `self` is this machine's address. Throws
    // kExitLocal where this is not allowed.
    PacketWatch(const std::string& interface, in_addr camera, in_addr self);
    void AddFigures(Figures* figures) const;

  private:
    void Watch(const std::stop_token& stop);
    void Judge(const uint8_t* packet, size_t length);

    in_addr camera_;
    in_addr self_;
    UniqueFd fd_;
    std::atomic<int64_t> answers_{0};
    std::atomic<int64_t> strays_{0};
    std::jthread thread_;
};
