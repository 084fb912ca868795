// Captures what is written to a descriptor (standard output, standard error) for a scope.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/log.h"
#include "common/unique_fd.h"

class CapturedOutput {
  public:
    explicit CapturedOutput(std::vector<int> fds = {STDERR_FILENO})
        : fds_(std::move(fds)), file_(memfd_create("captured", MFD_CLOEXEC))
    {
        LogInit("test", 0);
        fflush(stdout);
        for (const int fd : fds_) {
            saved_.emplace_back(dup(fd));
            dup2(file_.get(), fd);
        }
    }
    ~CapturedOutput()
    {
        fflush(stdout);
        for (size_t i = 0; i < fds_.size(); ++i)
            dup2(saved_[i].get(), fds_[i]);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    // Everything written so far.
    [[nodiscard]] std::string Text() const
    {
        fflush(stdout);
        struct stat status {};
        fstat(file_.get(), &status);
        std::string text(static_cast<size_t>(status.st_size), '\0');
        text.resize(static_cast<size_t>(pread(file_.get(), text.data(), text.size(), 0)));
        return text;
    }
    // The same with N for the source line in "function 12:" and "function 12 :".
    [[nodiscard]] std::string Lines() const
    {
        return std::regex_replace(Text(), std::regex(R"(([A-Za-z]\w+) \d+( ?:))"), "$1 N$2");
    }
    [[nodiscard]] bool Has(const std::string& line) const { return Lines().find(line) != std::string::npos; }

  private:
    std::vector<int> fds_;
    UniqueFd file_;
    std::vector<UniqueFd> saved_;
};

// Waits for an event that other threads bring about; false when it has not come after ten seconds.
inline bool WaitUntil(const std::function<bool()>& hasHappened)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!hasHappened()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
