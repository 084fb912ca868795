// Runs a process beside the bench camera, as a camera's init process does: when it ends, it is left so or
// started again, sooner when it ran for a while than when it ends at once.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

enum class AtEnd : uint8_t { kStartAgain, kLeave };

class ProcessRunner {
  public:
    // The program's file, and its arguments: the first one is the name that it is known by.
    ProcessRunner(std::string program, std::vector<std::string> arguments, AtEnd atEnd)
        : program_(std::move(program)), arguments_(std::move(arguments)), atEnd_(atEnd)
    {
    }
    ~ProcessRunner() { Stop(); }
    ProcessRunner(const ProcessRunner&) = delete;
    ProcessRunner& operator=(const ProcessRunner&) = delete;

    void Start();
    // Ends the process: it is asked to, and killed when it does not within two seconds.
    void Stop();

  private:
    void Run();
    void RunOnce(std::unique_lock<std::mutex>& lock);
    void Signal(int number);

    const std::string program_;
    const std::vector<std::string> arguments_;
    const AtEnd atEnd_;
    std::mutex mutex_; // guards all below
    std::condition_variable changed_;
    bool stopping_ = false;
    bool ended_ = true;
    pid_t pid_ = -1; // while it runs and has not been waited for
    std::thread thread_;
};
