// The server under test as a process: what it writes is kept, its death noticed.
//
// The program is the one that the environment names in VELMORA_SERVER, else the one built beside the
// tests; another one, such as a host, may be named instead. Waits throw when their limit is over.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "common/unique_fd.h"

class ServerProcess {
  public:
    explicit ServerProcess(std::vector<std::string> arguments = {}, std::string path = Path());
    ~ServerProcess(); // kills it
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Waits until standard error (the log) or standard output holds the text so many times.
    void WaitForLog(const std::string& text, int times = 1) const { WaitFor(log_, text, times); }
    void WaitForOutput(const std::string& text, int times = 1) const { WaitFor(output_, text, times); }
    [[nodiscard]] int CountLog(const std::string& text) const;
    [[nodiscard]] int CountOutput(const std::string& text) const;
    void ForgetWritten(); // of both

    void Signal(int number) const { kill(pid_, number); }
    void WaitUntilStopped() const;                                  // by SIGSTOP
    int WaitForExit();                                              // its exit status
    [[nodiscard]] size_t CountEntries(const char* directory) const; // of its directory in /proc
    // Fails the test if the server has died or a sanitizer has complained.
    void ExpectHealthy();
    [[nodiscard]] static const char* Path();

  private:
    static void WaitFor(const UniqueFd& where, const std::string& text, int times);

    UniqueFd log_, output_; // files in memory, to which the server writes
    pid_t pid_;
    bool reaped_ = false;
};
