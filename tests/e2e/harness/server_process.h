// The server under test as a process: its output is collected, its death noticed.
//
// The program is the one that the environment names in VELMORA_SERVER, else the one built beside the
// tests. Waits throw when their limit is over.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"

class ServerProcess {
  public:
    explicit ServerProcess(std::vector<std::string> arguments = {});
    ~ServerProcess(); // kills it
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Waits until standard error (the log) or standard output holds the text so many times.
    void WaitForLog(const std::string& text, int times = 1) { WaitFor(log_, text, times); }
    void WaitForOutput(const std::string& text, int times = 1) { WaitFor(output_, text, times); }
    int CountLog(const std::string& text);
    std::string Log();
    std::string Output();

    int WaitForExit(); // its exit status
    size_t CountDescriptors() const;
    size_t CountThreads() const;
    // Fails the test if the server has died or a sanitizer has complained.
    void ExpectHealthy();
    [[nodiscard]] static const char* Path();

  private:
    void Collect();
    void WaitFor(const std::string& where, const std::string& text, int times);

    pid_t pid_ = -1;
    bool reaped_ = false;
    UniqueFd errorPipe_, outputPipe_;
    std::mutex lock_; // guards what is collected
    std::condition_variable grown_;
    std::string log_, output_;
    bool ended_ = false; // both pipes are at their end
    std::thread collector_;
};
