// The file or pipe that a recording goes to.
//
// A pipe whose reader has stopped reading would hold a write for ever, so pipes are written in pieces that
// poll() promised room for, and a flag that another thread sets ends the wait. A regular file is written
// plainly: what was taken is written, also after the flag, so that the file ends well.
// Thread-bound but for the flag.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string>

#include "common/unique_fd.h"

class OutputFile {
  public:
    // Creates or overwrites the file; "-" is standard output. Throws Failure.
    OutputFile(const std::string& path, const std::atomic<bool>& giveUp);

    // 0, or the errno of the failed write.
    [[nodiscard]] int Write(std::span<const uint8_t> bytes);
    // New position, or a negative errno.
    [[nodiscard]] int64_t Seek(int64_t offset, int whence);
    // Closes, and reports what the system kept back until now: 0 or errno.
    [[nodiscard]] int Close();

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] bool isRegular() const { return isRegular_; }
    // Throws the Failure that a user reads for this errno.
    [[noreturn]] void ThrowError(int error) const;

  private:
    [[nodiscard]] int WaitForRoom() const;

    std::string path_;
    const std::atomic<bool>& giveUp_;
    UniqueFd fd_;
    bool isRegular_ = false;
};

// Writes a whole file, as above. Throws Failure.
void SaveFile(const std::string& path, std::span<const uint8_t> bytes);
