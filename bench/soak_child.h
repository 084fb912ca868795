// A process that the soak starts, stops, kills and watches. One thread uses it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "common/unique_fd.h"

class SoakChild {
  public:
    SoakChild() = default;
    // Starts the program. It dies with the thread that started it. Throws std::runtime_error.
    explicit SoakChild(const std::vector<std::string>& command);
    SoakChild(SoakChild&& other) noexcept;
    SoakChild& operator=(SoakChild&& other) noexcept;
    ~SoakChild() { Kill(); }

    [[nodiscard]] pid_t pid() const { return pid_; }
    // Both of its outputs.
    [[nodiscard]] int output() const { return output_.get(); }
    // Waits for its first line; throws when none comes.
    void WaitForLine(int seconds);
    void Signal(int number) const;
    // Asks it to end and waits until it has.
    void End();
    void Kill();
    [[nodiscard]] bool HasEnded() const;

  private:
    void Reap();

    pid_t pid_ = -1;
    UniqueFd output_;
};
