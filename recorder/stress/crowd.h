// Many plain connections to one address, opened and served without waiting for any of them.
//
// Thread-bound.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "recorder/deadline.h"

// One connection of a crowd.
struct Member {
    UniqueFd fd;
    bool isConnected = false;
    TimePoint since{};
    size_t sent = 0;      // bytes, as whoever serves the crowd counts them
    std::string received; // what it has kept of the answer
};

class Crowd {
  public:
    Crowd(const sockaddr_in& camera, size_t members);

    // Opens what is not open, and notes who has been let in. A connection that the camera does not take
    // within a second is given up; so is one that it has closed.
    void Step();
    [[nodiscard]] std::span<Member> members() { return members_; }
    [[nodiscard]] int64_t opened() const { return opened_; } // connections that were established so far
    [[nodiscard]] int64_t CountConnected() const;

  private:
    void Open(Member& member);

    sockaddr_in camera_;
    std::vector<Member> members_;
    int64_t opened_ = 0;
};

// Sends without waiting. Returns what went out; closes the connection when the camera has.
size_t SendTo(Member& member, std::string_view bytes);
// Discards what has come, as often as anything comes, and closes the connection at its end.
int64_t DiscardFrom(Member& member);

// Raises the limit of open files where this may be done.
void AllowDescriptors(size_t count);

// A request as it travels.
std::string RequestBytes(uint16_t messageId, std::string_view body, uint32_t seqNum = 0);
