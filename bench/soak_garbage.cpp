#include "bench/soak_garbage.h"

#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <random>

#include "recorder/failure.h"

namespace {

constexpr milliseconds kTimeout{60'000};
constexpr uint32_t kNoSession = 0xDEAD0000; // the first of many that no login gives out

// Requests that change nothing beyond the connection, whatever their bodies hold.
constexpr uint16_t kHarmless[] = {
    kLoginReq,
    kKeepaliveReq,
    kSysinfoReq,
    kSetConfigReq,
    kGetConfigReq,
    kGetChanTitleReq,
    kGetAbilityReq,
    kMonitorReq,
    kMonitorClaim,
    kLogQueryReq,
    kTimeQueryReq,
    kUserManageReq,
    kUserUsersReq,
    kUserGroupReq,
    kUserSettingReq,
    kAlarmSubscribeReq,
    kAlarmUnsubscribeReq,
    kDevSearchReq,
    kDevIpSettingReq,
    kForceIFrameReq,
    kPtzControlReq,
    0,
    9999,
    65535,
};
constexpr const char* kBodies[] = {
    "",
    "{",
    "[[[[[[[[[[[[[[[[",
    "null",
    R"({"Name":)",
    R"({"Name":"%n%s%x","OPMonitor":[],"OPPTZControl":7})",
    R"({"Name":["KeepAlive"],"OPMonitor":{"Parameter":3}})",
    R"({"Name":"NetWork.NetNTP","NetWork.NetNTP":"../../../etc/passwd"})",
    "\xff\xfe{\"Name\":\"\\ud800\"}",
};

std::string MakeMessage(uint16_t id, uint32_t session, const std::string& body, uint32_t announcedBytes)
{
    std::string message(kHeaderBytes, '\0');
    WriteHeader(reinterpret_cast<uint8_t*>(message.data()), {.ucHeadFlag = kHeadFlag,
                                                             .ucVersion = kVersion,
                                                             .ucReserved2 = {},
                                                             .ulSessionId = session,
                                                             .ulSeqNum = 0,
                                                             .ucReserved12 = {},
                                                             .usMessageId = id,
                                                             .ulBodyLength = announcedBytes});
    return message + body;
}

std::string Noise(std::minstd_rand& random, size_t bytes)
{
    std::string noise(bytes, '\0');
    for (char& byte : noise)
        byte = static_cast<char>(random() >> 8);
    return noise;
}

// One message, or what is none.
std::string Garbage(std::minstd_rand& random)
{
    const uint16_t id = kHarmless[random() % std::size(kHarmless)];
    const auto session = static_cast<uint32_t>(kNoSession + random() % 0x1000);
    const std::string body = kBodies[random() % std::size(kBodies)];
    switch (random() % 5) {
    case 0:
        return MakeMessage(id, session, body, static_cast<uint32_t>(body.size()));
    case 1: // text that no parser takes
        return MakeMessage(id, session, Noise(random, random() % 900), static_cast<uint32_t>(random() % 900));
    case 2: // announces more than it holds
        return MakeMessage(id, session, body, 0x7FFFFFFF);
    case 3: // a piece of a header
        return MakeMessage(id, session, "", 0).substr(0, 1 + random() % (kHeaderBytes - 1));
    default: { // no header at all
        std::string noise = Noise(random, kHeaderBytes + random() % 200);
        noise[offsetof(MessageHeader, usMessageId)] = static_cast<char>(0xEE);
        noise[offsetof(MessageHeader, usMessageId) + 1] = static_cast<char>(0xEE);
        return noise;
    }
    }
}

// Reads whatever comes until the camera has closed.
void AwaitEnd(Connection& connection)
{
    shutdown(connection.fd(), SHUT_WR);
    try {
        for (const TimePoint deadline = Clock::now() + kTimeout;;)
            (void)connection.Receive(deadline);
    } catch (const Failure& failure) {
        if (failure.code() != kExitClosed)
            throw;
    }
}

void SendAndEnd(const HostPort& camera, const std::string& bytes)
{
    Connection connection(camera, Clock::now() + kTimeout);
    if (send(connection.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
        throw Failure(kExitClosed, "the camera takes no garbage");
    AwaitEnd(connection);
}

} // namespace

void SendGarbage(const HostPort& camera, uint32_t value)
{
    std::minstd_rand random(value + 1);
    SendAndEnd(camera, random() % 8 == 0 ? std::string() : Garbage(random));
}

void SendGarbageDatagrams(SearchSocket& socket, uint32_t value)
{
    std::minstd_rand random(value + 1);
    for (uint32_t left = 1 + random() % 4; left > 0; --left)
        (void)socket.Send(kHarmless[random() % std::size(kHarmless)], Noise(random, random() % 900));
}

void SendUnanswered(const HostPort& camera, uint16_t id, const std::string& body)
{
    SendAndEnd(camera, MakeMessage(id, 0, body, static_cast<uint32_t>(body.size())));
}
