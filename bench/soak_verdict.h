// What all threads of the soak count and complain about. Thread-safe.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

class SoakVerdict {
  public:
    // Notes that something is not as it must be, and says so at once.
    [[gnu::format(printf, 2, 3)]] void Fail(const char* format, ...);
    [[nodiscard]] uint64_t Failures() const { return failures_; }

    void Count(const std::string& what);
    [[nodiscard]] std::map<std::string, uint64_t> Counts() const;

    // An answer that took so long; `disturbed` when a fault lasted meanwhile.
    void CountAnswer(double ms, bool disturbed);

    std::atomic<uint64_t> round{0}; // that runs
    std::atomic<uint64_t> pictures{0}, sounds{0}, mediaBytes{0};
    std::atomic<uint64_t> gaps{0}; // that faults and pauses allow
    std::atomic<uint64_t> alarms{0}, answers{0};
    std::atomic<double> slowestCalmMs{0}, slowestDisturbedMs{0};

  private:
    std::atomic<uint64_t> failures_{0};
    mutable std::mutex mutex_; // guards the map
    std::map<std::string, uint64_t> counts_;
};
