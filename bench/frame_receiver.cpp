#include "bench/frame_receiver.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "bench/frame_pattern.h"

namespace {

constexpr size_t kReceiveBytes = 1 << 20;
constexpr int kTickMs = 1000;

void Watch(int epoll, int fd, size_t event)
{
    epoll_event interest{};
    interest.events = EPOLLIN;
    interest.data.u64 = event;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &interest) != 0)
        throw std::runtime_error("epoll_ctl failed");
}

} // namespace

FrameReceiver::FrameReceiver(std::vector<int> sockets, size_t watchers, Calls calls)
    : sockets_(std::move(sockets)), watchers_(watchers), calls_(std::move(calls)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC)),
      reached_(std::make_unique<std::atomic<uint64_t>[]>(watchers))
{
    for (size_t socket = 0; socket < sockets_.size(); ++socket)
        Watch(epoll_.get(), sockets_[socket], socket);
    Watch(epoll_.get(), wake_.get(), sockets_.size());
    thread_ = std::jthread([this] { Receive(); });
}

FrameReceiver::~FrameReceiver()
{
    (void)eventfd_write(wake_.get(), 1);
}

bool FrameReceiver::AllReached(uint64_t number) const
{
    for (size_t watcher = 0; watcher < watchers_; ++watcher)
        if (reached_[watcher] <= number)
            return false;
    return true;
}

void FrameReceiver::Stop()
{
    (void)eventfd_write(wake_.get(), 1);
    thread_.join();
    if (!error_.empty())
        throw std::runtime_error(error_);
}

void FrameReceiver::Drain(size_t socket, std::vector<uint8_t>& buffer)
{
    const ssize_t got = recv(sockets_[socket], buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got < 0 && errno == EAGAIN)
        return;
    if (got <= 0)
        throw std::runtime_error("the server closed connection " + std::to_string(socket));
    if (socket >= watchers_)
        return;
    const std::vector<ReceivedFrame>& frames =
        calls_.take(socket, buffer.data(), static_cast<size_t>(got), MonotonicNs());
    delivered_ += static_cast<uint64_t>(got);
    if (!frames.empty())
        reached_[socket] = frames.back().number + 1;
}

void FrameReceiver::Receive()
{
    std::vector<uint8_t> buffer(kReceiveBytes);
    std::array<epoll_event, 16> events;
    try {
        for (;;) {
            const int ready = epoll_wait(epoll_.get(), events.data(), events.size(), kTickMs);
            for (int i = 0; i < ready; ++i) {
                const size_t socket = events[static_cast<size_t>(i)].data.u64;
                if (socket == sockets_.size())
                    return;
                Drain(socket, buffer);
            }
            calls_.tick();
        }
    } catch (const std::exception& failure) {
        error_ = failure.what();
    }
}
