// Counts the server's log lines by kind while it writes them.
//
// Thread-safe. Texts come in whatever pieces reads return, from the server's outputs and from its console;
// a line that goes from one to the other in its middle counts as two.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

// One source of text.
struct LogSource {
    std::string begun; // of a line
};

class SoakLog {
  public:
    void Add(LogSource& source, std::string_view text);

    // Lines by level, errors and warnings with the name that they begin with.
    [[nodiscard]] std::map<std::string, uint64_t> Kinds() const;
    // Lines of a sanitizer or of the C library's guards, which no healthy server writes.
    [[nodiscard]] std::deque<std::string> Complaints() const;
    [[nodiscard]] std::deque<std::string> LastLines() const;
    // Connections that were given up because they took nothing.
    [[nodiscard]] uint64_t SlowReaders() const;

  private:
    void AddLine(const std::string& line);

    mutable std::mutex mutex_; // guards all below
    std::map<std::string, uint64_t> kinds_;
    std::deque<std::string> complaints_;
    std::deque<std::string> last_;
    uint64_t slowReaders_ = 0;
};
