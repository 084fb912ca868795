// The connection table: all accepted TCP connections, sixteen slots searched in index order.
//
// A session has no record of its own: it is the set of slots that share a session id. Everything
// else in the server finds a connection by its socket.
//
// Thread-safe: one mutex is held for each lookup and change, never while anybody waits. A thread that
// reads from or sends on a socket holds its connection meanwhile (ConnectionHold): RemoveFd shuts the
// socket down and frees the slot at once, but the number is closed only when the last holder lets go,
// so that no byte goes to a stranger who was given the same number.
#pragma once

#include <cstdint>

inline constexpr int kMaxConnections = 16; // MAX_CONNECT_NUM
inline constexpr int kTableFull = -5;

enum FdType : int32_t {
    kFdNew = -1,         // not yet identified
    kFdCommand = 0,      // logged in
    kFdMainStream = 1,   // media connection of stream 0
    kFdExtraStream = 2,  // media connection of stream 1
    kFdExtra2Stream = 3, // media connection of a third stream, which nothing is sent on
};

struct ConnectionEntry {
    uint32_t in_use;      // 1 when the slot holds a connection
    int32_t fd;           // its socket; 0 in a free slot
    char ip[32];          // peer address, dotted text
    uint16_t port;        // peer port in network byte order, as accept() gave it
    uint32_t sessionid;   // 0 until login or media claim
    uint32_t seqnum;      // next sequence number of messages that the server starts
    int32_t fd_type;      // FdType
    uint32_t send_video;  // 1 when media messages are to be sent on it
    uint32_t alarm_on;    // 1 when alarms are to be pushed on it
    uint32_t last_active; // uptime in seconds of its last traffic
};

// Enters an accepted socket into the first free slot. Returns 0, or kTableFull (-5).
int AddFd(int fd, const char* ip, uint16_t port, uint32_t sessionId);
// Shuts the socket down and frees its slot; a socket that is not in the table changes nothing.
// Returns 0.
int RemoveFd(int fd);

// The getters return the value, or what stands in their comment when the socket is not in the table;
// the setters then do nothing.
uint32_t GetSessionIdByFd(int fd); // else 0
void SetSessionIdByFd(int fd, uint32_t sessionId);
int32_t GetFdType(int fd); // else -1
void SetFdType(int fd, int32_t type);
int GetAlarmFlag(int fd); // else -1
void SetAlarmFlag(int fd, uint32_t flag);
uint32_t GetSendVideoFlag(int fd); // else 0
// Sets the flag on every main- and extra-stream connection of the socket's session.
void SetSendVideoFlag(int fd, uint32_t flag);
// The connection's sequence number, which then counts on; wraps at 32 bits. Else 0.
uint32_t GetNextSeqnum(int fd);
// Stores the present uptime as the time of the connection's last traffic.
void RefreshLastActive(int fd);

int GetConnectCount(); // slots in use
int GetMaxFd();        // the largest socket in use, or -1
// 1 when a connection of the stream wants media, 0 when none does, -1 for an index above 3.
int IsStreamWanted(uint32_t streamIndex);

// Holds one connection: while it lasts, the socket's number stays this connection's own even if the
// connection is removed. Bound to the thread that took it.
class ConnectionHold {
  public:
    ConnectionHold() = default;
    // Holds the connection in the slot (0 to 15); empty when the slot is free.
    explicit ConnectionHold(int slot) { Take(slot); }
    ~ConnectionHold() { Release(); }
    ConnectionHold(const ConnectionHold&) = delete;
    ConnectionHold& operator=(const ConnectionHold&) = delete;

    bool Take(int slot);
    void Release();
    explicit operator bool() const { return entry_.in_use != 0; }
    // The slot's fields as they were when it was taken.
    [[nodiscard]] const ConnectionEntry& entry() const { return entry_; }
    // False once the connection was removed from the table: whatever is sent now is lost.
    [[nodiscard]] bool IsLive() const;

  private:
    ConnectionEntry entry_{};
};
