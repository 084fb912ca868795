// Captures what is written to descriptors (standard output, standard error) for a scope.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/log.h"
#include "common/unique_fd.h"

// Of a file whose writers append: reading it moves nobody.
inline std::string ContentsOf(const UniqueFd& file)
{
    std::string text(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
    text.resize(static_cast<size_t>(std::max(pread(file.get(), text.data(), text.size(), 0), ssize_t{0})));
    return text;
}

inline int CountOf(const std::string& where, const std::string& text)
{
    int count = 0;
    for (size_t at = where.find(text); at != std::string::npos; at = where.find(text, at + 1))
        ++count;
    return count;
}

class CapturedOutput {
  public:
    explicit CapturedOutput(std::vector<int> fds = {STDERR_FILENO}, bool isLogging = true)
        : fds_(std::move(fds)), file_(memfd_create("captured", MFD_CLOEXEC))
    {
        if (isLogging)
            LogInit("test", 0);
        fcntl(file_.get(), F_SETFL, O_APPEND); // as standard error of a service is
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

    // Everything written so far.
    [[nodiscard]] std::string Text() const
    {
        fflush(stdout);
        return ContentsOf(file_);
    }
    // The same with N for the source line, which is the number behind the first name of a line.
    [[nodiscard]] std::string Lines() const
    {
        std::string lines;
        std::istringstream text(Text());
        for (std::string line; std::getline(text, line); lines += line + '\n') {
            const size_t number = line.find_first_of("0123456789");
            const size_t end = line.find_first_not_of("0123456789", number);
            if (number != std::string::npos && number > 0 && end != std::string::npos &&
                line[number - 1] == ' ' && (line[end] == ':' || line[end] == ' '))
                line.replace(number, end - number, "N");
        }
        return lines;
    }
    [[nodiscard]] bool Has(const std::string& line) const { return Count(line) > 0; }
    [[nodiscard]] int Count(const std::string& line) const { return CountOf(Lines(), line); }

  private:
    std::vector<int> fds_;
    UniqueFd file_;
    std::vector<UniqueFd> saved_;
};

// What a call writes to standard error.
inline std::string ErrorOutputOf(const std::function<void()>& call)
{
    const CapturedOutput output({STDERR_FILENO}, false);
    call();
    return output.Text();
}

// What a shell command prints.
inline std::string OutputOf(const std::string& command)
{
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int byte = getc(pipe); byte != EOF; byte = getc(pipe))
        output += static_cast<char>(byte);
    pclose(pipe);
    return output;
}

// Waits for an event that other threads bring about; false when it has not come after ten seconds.
inline bool WaitUntil(const std::function<bool()>& hasHappened)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (; !hasHappened(); std::this_thread::sleep_for(std::chrono::milliseconds(1)))
        if (std::chrono::steady_clock::now() > deadline)
            return false;
    return true;
}
