// Runs Velmora_server beside the bench camera, as a camera's init process does: starts it again when it
// ends, sooner when it ran for a while than when it ends at once.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class ServerRunner {
  public:
    explicit ServerRunner(std::vector<std::string> command) : command_(std::move(command)) {}
    ~ServerRunner() { Stop(); }
    ServerRunner(const ServerRunner&) = delete;
    ServerRunner& operator=(const ServerRunner&) = delete;

    void Start();
    // Ends the server: it is asked to, and killed when it does not within two seconds.
    void Stop();
    // Ends the running server, so that it starts again. Any thread.
    void Restart();

  private:
    void Run();
    void Signal(int number);

    const std::vector<std::string> command_;
    std::mutex mutex_; // guards all below
    std::condition_variable changed_;
    bool stopping_ = false;
    bool ended_ = true;
    pid_t pid_ = -1; // while it runs and has not been waited for
    std::thread thread_;
};
