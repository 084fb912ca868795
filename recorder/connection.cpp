#include "recorder/connection.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>

#include "media/media_layout.h"
#include "recorder/failure.h"

namespace {

// Two of the largest messages: a read is seldom cut short by what is left of the message before.
constexpr size_t kBufferBytes = 2 * (kHeaderBytes + kVideoBodyBytes);

struct AddressListDelete {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListDelete>;

AddressList Resolve(const HostPort& address)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const int error = getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &list);
    if (error != 0)
        throw Failure(kExitUnreachable, address.host + ": " + gai_strerror(error));
    return AddressList(list);
}

// Waits until the socket is ready for `events`; false at the deadline. A signal does not end the wait.
bool WaitFor(int fd, short events, TimePoint deadline)
{
    for (;;) {
        pollfd entry{fd, events, 0};
        if (poll(&entry, 1, PollTimeout(deadline)) > 0)
            return true;
        if (Clock::now() >= deadline)
            return false;
    }
}

// Connects to one address: 0, or the errno of the attempt.
int ConnectOne(const addrinfo& address, TimePoint deadline, UniqueFd& out)
{
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd.isValid())
        return errno;
    if (connect(fd.get(), address.ai_addr, address.ai_addrlen) != 0) {
        if (errno != EINPROGRESS)
            return errno;
        if (!WaitFor(fd.get(), POLLOUT, deadline))
            return ETIMEDOUT;
        int error = 0;
        socklen_t length = sizeof error;
        if (getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0)
            return error != 0 ? error : errno;
    }
    const int on = 1;
    (void)setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // slower without it, no worse
    out = std::move(fd);
    return 0;
}

// First bytes of something else, shown to the user: printable as they are, the others as dots.
std::string Excerpt(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes.first(std::min<size_t>(bytes.size(), 16)))
        text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    return text;
}

// Media messages have a limit of their own; everything else fits one read of the camera.
size_t MaxBodyBytes(uint16_t messageId)
{
    return messageId == kMediaData ? kVideoBodyBytes : kMaxBodyBytes;
}

} // namespace

HostPort ParseHostPort(const std::string& text)
{
    HostPort address;
    const size_t colon = text.find(':');
    address.host = text.substr(0, colon);
    if (colon != std::string::npos) {
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, address.port);
        if (error != std::errc{} || stop != end || address.port == 0)
            throw Failure(kExitUsage, "'" + text + "' is no HOST[:PORT]");
    }
    if (address.host.empty())
        throw Failure(kExitUsage, "'" + text + "' is no HOST[:PORT]");
    return address;
}

std::string PrintHostPort(const HostPort& address)
{
    return address.host + ":" + std::to_string(address.port);
}

Connection::Connection(const HostPort& address, TimePoint deadline)
    : name_(PrintHostPort(address)), buffer_(kBufferBytes)
{
    const AddressList list = Resolve(address);
    int error = EHOSTUNREACH;
    for (const addrinfo* entry = list.get(); entry != nullptr && !fd_.isValid(); entry = entry->ai_next)
        error = ConnectOne(*entry, deadline, fd_);
    if (fd_.isValid())
        return;
    if (error == ETIMEDOUT)
        throw Failure(kExitTimedOut, name_ + ": timed out while connecting");
    throw Failure(kExitUnreachable, name_ + ": " + strerror(error));
}

void Connection::ThrowClosed(const char* how) const
{
    const char* where = begin_ == end_ ? "" : " in the middle of a message";
    throw Failure(kExitClosed, name_ + ": " + how + where);
}

void Connection::ThrowNotProtocol(const std::string& why) const
{
    throw Failure(kExitNotProtocol, name_ + ": not this protocol: " + why);
}

void Connection::Send(MessageHeader header, std::string_view body)
{
    header.ucHeadFlag = kHeadFlag;
    header.ucVersion = kVersion;
    header.ulBodyLength = static_cast<uint32_t>(body.size());
    uint8_t bytes[kHeaderBytes];
    WriteHeader(bytes, header);
    // Header and body leave in one send: the camera takes one read as one message.
    unsent_.append(reinterpret_cast<const char*>(bytes), sizeof bytes).append(body);
    Flush();
}

void Connection::Flush()
{
    while (!unsent_.empty()) {
        const ssize_t sent = send(fd(), unsent_.data(), unsent_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0)
            unsent_.erase(0, static_cast<size_t>(sent));
        else if (errno == EAGAIN)
            return;
        else if (errno != EINTR)
            ThrowClosed("closed by the camera");
    }
}

bool Connection::ReadMore()
{
    if (begin_ > 0) {
        memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    const ssize_t got = recv(fd(), buffer_.data() + end_, buffer_.size() - end_, MSG_DONTWAIT);
    if (got > 0) {
        end_ += static_cast<size_t>(got);
        return true;
    }
    if (got == 0)
        ThrowClosed("closed by the camera");
    if (errno == EAGAIN || errno == EINTR)
        return false;
    if (errno == ECONNRESET || errno == EPIPE)
        ThrowClosed("reset by the camera");
    throw Failure(kExitUnreachable, name_ + ": " + strerror(errno));
}

void Connection::CheckFirstBytes() const
{
    static constexpr uint8_t kFirst[] = {kHeadFlag, kVersion};
    if (memcmp(buffer_.data() + begin_, kFirst, std::min(sizeof kFirst, end_ - begin_)) != 0)
        ThrowNotProtocol("received '" + Excerpt({buffer_.data() + begin_, end_ - begin_}) + "'");
}

std::optional<Message> Connection::NextMessage()
{
    CheckFirstBytes();
    if (end_ - begin_ < kHeaderBytes)
        return std::nullopt;
    const MessageHeader header = ReadHeader(buffer_.data() + begin_, kHeaderBytes);
    if (header.ulBodyLength > MaxBodyBytes(header.usMessageId))
        ThrowNotProtocol("message " + std::to_string(header.usMessageId) + " announces " +
                         std::to_string(header.ulBodyLength) + " bytes");
    if (end_ - begin_ < kHeaderBytes + header.ulBodyLength)
        return std::nullopt;
    const uint8_t* body = buffer_.data() + begin_ + kHeaderBytes;
    begin_ += kHeaderBytes + header.ulBodyLength;
    return Message{header, {body, header.ulBodyLength}};
}

Message Connection::Receive(TimePoint deadline)
{
    for (;;) {
        if (auto message = NextMessage())
            return *message;
        const short events = static_cast<short>(POLLIN | (hasUnsent() ? POLLOUT : 0));
        // Asked before the wait: a peer that never stops sending other messages runs into the limit too.
        if (Clock::now() >= deadline || !WaitFor(fd(), events, deadline))
            throw Failure(kExitTimedOut, name_ + ": timed out while waiting for an answer");
        Flush();
        ReadMore();
    }
}
