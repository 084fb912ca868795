// How late this machine itself is, so that a busy machine is not taken for a slow camera: a thread makes
// the waits that a camera grants a stuck reader (200 of 2 ms) over and over, and notes by how much they
// took longer than they should.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

class MachineNoise {
  public:
    MachineNoise();
    // By how much 200 waits in a row were late at worst, so far.
    [[nodiscard]] int64_t worstMs() const { return worstUs_ / 1000; }

  private:
    void Measure(const std::stop_token& stop);

    std::atomic<int64_t> worstUs_{0};
    std::jthread thread_;
};
