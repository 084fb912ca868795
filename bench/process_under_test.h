// The program being measured, as a child process, and what the kernel counts for it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

class ProcessUnderTest {
  public:
    // Starts the program; its output is discarded. Throws std::runtime_error.
    explicit ProcessUnderTest(const std::string& path, std::vector<std::string> arguments = {});
    ProcessUnderTest(const ProcessUnderTest&) = delete;
    ProcessUnderTest& operator=(const ProcessUnderTest&) = delete;
    ~ProcessUnderTest(); // kills it

    // Throws when the program has ended by itself.
    void CheckAlive() const;
    pid_t Pid() const { return pid_; }

  private:
    std::string path_;
    pid_t pid_ = -1;
};

// Sums over all threads that the process has now.
struct ProcessCounters {
    uint64_t runNs = 0;   // processor time, user and system
    uint64_t lookNs = 0;  // of that, time of the threads that look for frames in the rings
    uint64_t wakeUps = 0; // voluntary context switches: every wait that really waited
};
ProcessCounters ReadCounters(pid_t pid);

struct ProcessMemory {
    uint64_t pssBytes = 0;
    uint64_t rssBytes = 0;
};
ProcessMemory ReadMemory(pid_t pid);

// The number behind `name` in a text of "Name:   number unit" lines; 0 when there is no such line.
uint64_t FieldOf(const std::string& text, const std::string& name);
