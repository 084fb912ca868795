// Captures what the process writes to one of its descriptors while the scope lasts.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

class CaptureFd {
  public:
    explicit CaptureFd(int fd) : fd_(fd), saved_(dup(fd))
    {
        fflush(nullptr);
        char path[] = "/tmp/velmora-capture-XXXXXX";
        file_ = mkstemp(path);
        EXPECT_GE(file_, 0);
        unlink(path);
        dup2(file_, fd_);
    }
    ~CaptureFd()
    {
        fflush(nullptr);
        dup2(saved_, fd_);
        close(saved_);
        close(file_);
    }
    CaptureFd(const CaptureFd&) = delete;
    CaptureFd& operator=(const CaptureFd&) = delete;

    // Everything written so far.
    [[nodiscard]] std::string Text() const
    {
        fflush(nullptr);
        std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
        const ssize_t got = pread(file_, text.data(), text.size(), 0);
        text.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return text;
    }

  private:
    int fd_;
    int saved_;
    int file_ = -1;
};
