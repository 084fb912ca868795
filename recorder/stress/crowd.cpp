#include "recorder/stress/crowd.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "protocol/message.h"

namespace {

constexpr milliseconds kLetIn{1000};

} // namespace

Crowd::Crowd(const sockaddr_in& camera, size_t members) : camera_(camera), members_(members)
{
    AllowDescriptors(members + 100);
}

void Crowd::Open(Member& member)
{
    member = {};
    member.fd.reset(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    member.since = Clock::now();
    if (!member.fd.isValid())
        return; // tried again in the next step
    const auto* const address = reinterpret_cast<const sockaddr*>(&camera_);
    if (connect(member.fd.get(), address, sizeof camera_) != 0 && errno != EINPROGRESS)
        member.fd.reset();
}

void Crowd::Step()
{
    std::vector<pollfd> polled;
    for (Member& member : members_) {
        if (!member.fd.isValid())
            Open(member);
        polled.push_back({member.fd.get(), POLLOUT, 0});
    }
    (void)poll(polled.data(), polled.size(), 0);
    const TimePoint now = Clock::now();
    for (size_t i = 0; i < members_.size(); i++) {
        Member& member = members_[i];
        if ((polled[i].revents & (POLLERR | POLLHUP)) != 0 ||
            (!member.isConnected && now - member.since > kLetIn)) {
            member.fd.reset();
            member.isConnected = false;
        } else if (!member.isConnected && (polled[i].revents & POLLOUT) != 0) {
            member.isConnected = true;
            opened_++;
        }
    }
}

int64_t Crowd::CountConnected() const
{
    return std::ranges::count_if(members_, [](const Member& member) { return member.isConnected; });
}

size_t SendTo(Member& member, std::string_view bytes)
{
    if (!member.isConnected)
        return 0;
    const ssize_t sent = send(member.fd.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0)
        return static_cast<size_t>(sent);
    if (errno != EAGAIN && errno != EINTR) {
        member.fd.reset();
        member.isConnected = false;
    }
    return 0;
}

int64_t DiscardFrom(Member& member)
{
    int64_t discarded = 0;
    char bytes[16384];
    while (member.isConnected) {
        const ssize_t got = recv(member.fd.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            break;
        if (got <= 0) {
            member.fd.reset();
            member.isConnected = false;
        } else {
            discarded += got;
        }
    }
    return discarded;
}

void AllowDescriptors(size_t count)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= count)
        return;
    limit.rlim_cur = std::min<rlim_t>(count, limit.rlim_max);
    (void)setrlimit(RLIMIT_NOFILE, &limit); // as many as there are will do
}

std::string RequestBytes(uint16_t messageId, std::string_view body, uint32_t seqNum)
{
    MessageHeader header{};
    header.ucHeadFlag = kHeadFlag;
    header.ucVersion = kVersion;
    header.ulSeqNum = seqNum;
    header.usMessageId = messageId;
    header.ulBodyLength = static_cast<uint32_t>(body.size());
    uint8_t bytes[kHeaderBytes];
    WriteHeader(bytes, header);
    return std::string(reinterpret_cast<const char*>(bytes), sizeof bytes).append(body);
}
