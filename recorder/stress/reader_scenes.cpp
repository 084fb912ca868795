// Readers that hold the camera up: each has logged in and watches, as any recorder does.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "recorder/failure.h"
#include "recorder/stress/scenes.h"

namespace {

constexpr milliseconds kStep{5};
constexpr milliseconds kSilence{2000}; // after which nothing lies in the sockets any more

struct Reader {
    Session session;
    Connection media;
    TimePoint nextTake;
    int64_t stallsBefore; // when it came
    bool isTaking = false;
    bool isOver = false;

    Reader(const Load& load, Session&& loggedIn)
        : session(std::move(loggedIn)), media(session.Claim(FindStream("main"))), nextTake(Clock::now()),
          stallsBefore(load.pulse.stalls)
    {
        if (const int bytes = load.options.bufferBytes; bytes > 0)
            (void)setsockopt(media.fd(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
        session.Monitor("Start", FindStream("main"));
    }
};

std::unique_ptr<Reader> Join(const Load& load)
{
    Session session(load.options.address, load.options.timeout);
    session.Login();
    return std::make_unique<Reader>(load, std::move(session));
}

// Takes at most so many bytes. Returns false at the connection's end.
bool Take(Reader& reader, size_t most, int64_t* taken)
{
    std::vector<uint8_t> bytes(most);
    const ssize_t got = recv(reader.media.fd(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (got > 0)
        *taken += got;
    return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

struct Counters {
    int64_t taken = 0;
    int64_t resumed = 0;
    int64_t joined = 0;
    int64_t dropped = 0;
};

void TakeNothing(const Load&, std::unique_ptr<Reader>&, Counters*) {}

void TakeSlowly(const Load& load, std::unique_ptr<Reader>& reader, Counters* counters)
{
    if (reader->isOver || Clock::now() < reader->nextTake)
        return;
    reader->nextTake += milliseconds(load.options.everyMs);
    reader->isOver = !Take(*reader, static_cast<size_t>(load.options.takeBytes), &counters->taken);
}

// Takes little by little when the others have had no picture for so long that the camera is about to give
// this reader up, and stops as soon as they get one.
void TakeInTime(const Load& load, std::unique_ptr<Reader>& reader, Counters* counters)
{
    const bool isStuck = Clock::now() - load.pulse.lastPicture.load() >= milliseconds(load.options.resumeMs);
    counters->resumed += isStuck && !reader->isTaking ? 1 : 0;
    reader->isTaking = isStuck;
    if (isStuck && !reader->isOver)
        reader->isOver = !Take(*reader, static_cast<size_t>(load.options.takeBytes), &counters->taken);
}

// Goes when the camera has given it up, which the others' stall shows, and comes back at once.
void ComeBack(const Load& load, std::unique_ptr<Reader>& reader, Counters* counters)
{
    if (load.pulse.stalls == reader->stallsBefore)
        return;
    reader.reset();
    reader = Join(load);
    counters->joined++;
}

constexpr struct {
    const char* name;
    void (*step)(const Load& load, std::unique_ptr<Reader>& reader, Counters* counters);
} kReaders[] = {
    {"nothing", TakeNothing},
    {"slow", TakeSlowly},
    {"resume", TakeInTime},
    {"reconnect", ComeBack},
};

// Whether the camera has given the reader up: its connection ends after what lies in the sockets. One that
// it has not given up falls silent, because the reader asks for that.
bool WasDropped(Reader& reader)
{
    const int large = 1024 * 1024;
    (void)setsockopt(reader.media.fd(), SOL_SOCKET, SO_RCVBUF, &large, sizeof large);
    reader.session.Monitor("Stop", FindStream("main"));
    int64_t taken = 0;
    TimePoint silentAt = Clock::now() + kSilence;
    while (!reader.isOver && Clock::now() < silentAt) {
        pollfd readable{reader.media.fd(), POLLIN, 0};
        if (poll(&readable, 1, PollTimeout(silentAt)) <= 0)
            continue;
        reader.isOver = !Take(reader, 65536, &taken);
        silentAt = Clock::now() + kSilence;
    }
    return reader.isOver;
}

} // namespace

Figures LoadReaders(const Load& load)
{
    const auto* const kind = std::ranges::find_if(
        kReaders, [&](const auto& candidate) { return load.options.reader == candidate.name; });
    if (kind == std::end(kReaders))
        throw Failure(kExitUsage, "no reader is called '" + load.options.reader + "'");
    Counters counters;
    std::vector<std::unique_ptr<Reader>> readers;
    for (int i = 0; i < load.options.connections; i++, counters.joined++)
        readers.push_back(Join(load));
    while (!load.stop.stop_requested()) {
        for (auto& reader : readers) {
            kind->step(load, reader, &counters);
            reader->session.Receive();
            reader->session.KeepAlive();
        }
        std::this_thread::sleep_for(kStep);
    }
    for (const auto& reader : readers)
        counters.dropped += WasDropped(*reader) ? 1 : 0;
    return {{"readers", counters.joined},
            {"readers_took_bytes", counters.taken},
            {"readers_resumed", counters.resumed},
            {"readers_dropped", counters.dropped}};
}
