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
constexpr milliseconds kDropped{1500};         // an end that has not come by then is none
constexpr size_t kMostLeft = 16 * 1024 * 1024; // more than sockets hold: the camera sends on

struct Reader {
    Session session;
    Connection media;
    TimePoint nextTake;
    int64_t stallsBefore; // when it came
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

// Reads on when the others have had no picture for so long that the camera is about to give it up.
void TakeInTime(const Load& load, std::unique_ptr<Reader>& reader, Counters* counters)
{
    const bool isStuck = Clock::now() - load.pulse.lastPicture.load() >= milliseconds(load.options.resumeMs);
    if (reader->isOver || !isStuck || Clock::now() < reader->nextTake)
        return;
    reader->nextTake = Clock::now() + milliseconds(load.options.resumeMs) / 2; // until that shows
    reader->isOver = !Take(*reader, static_cast<size_t>(load.options.takeBytes), &counters->taken);
    counters->resumed++;
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

// Whether the camera has given the reader up: its connection ends after what lies in the sockets.
bool WasDropped(Reader& reader)
{
    const int large = 1024 * 1024;
    (void)setsockopt(reader.media.fd(), SOL_SOCKET, SO_RCVBUF, &large, sizeof large);
    const TimePoint end = Clock::now() + kDropped;
    int64_t taken = 0;
    while (!reader.isOver && Clock::now() < end && taken < static_cast<int64_t>(kMostLeft)) {
        pollfd readable{reader.media.fd(), POLLIN, 0};
        (void)poll(&readable, 1, PollTimeout(end));
        reader.isOver = !Take(reader, 65536, &taken);
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
