// Delay of an alarm from its write into the alarm block to the message at a recorder, with fifteen
// subscribers of which one never reads.
//
//   velmora-alarm-bench SERVER [ALARMS]        in a sandbox of its own (tests/isolated.sh)
//
// The server looks at the block once a second, so delays are spread over that second; what the push itself
// takes is what lies beyond it.

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>

#include "bench/bench_hosts.h"
#include "bench/media_figures.h"
#include "bench/process_under_test.h"
#include "camera/alarm_block.h"
#include "common/little_endian.h"
#include "recorder/failure.h"
#include "recorder/session.h"

namespace {

constexpr size_t kSubscribers = 15;
constexpr size_t kReaders = kSubscribers - 1; // the last one never reads
constexpr int kDefaultAlarms = 30;
constexpr int kFillers = 500; // answers of 3.4 kB each
constexpr double kGoalMs = 1000 + 60;
constexpr milliseconds kPatience{5000};
constexpr FramePattern kSlowPattern{.bitsPerSecond = 256 * 1000};

// One recorder, and what the alarm under way has told it.
struct Subscriber {
    std::unique_ptr<Session> session;
    TimePoint started{}; // arrival of the first "Start" since the write
    bool hasStopped = true;
};

std::unique_ptr<Session> ConnectWhenReady()
{
    const HostPort address{"127.0.0.1", kServerPort};
    for (const TimePoint limit = Clock::now() + kPatience;;) {
        try {
            auto session = std::make_unique<Session>(address, kPatience);
            session->Login();
            return session;
        } catch (const Failure&) { // the server is starting
            if (Clock::now() > limit)
                throw;
            SleepUntilNs(MonotonicNs() + 20'000'000);
        }
    }
}

std::vector<Subscriber> Subscribe()
{
    std::vector<Subscriber> subscribers(kSubscribers);
    for (Subscriber& subscriber : subscribers) {
        subscriber.session = ConnectWhenReady();
        subscriber.session->setAlarmSink([&subscriber](std::string_view body) {
            if (body.find("Stop") != std::string_view::npos)
                subscriber.hasStopped = true;
            else if (subscriber.started == TimePoint{})
                subscriber.started = Clock::now();
        });
        subscriber.session->RequestOk(kAlarmSubscribeReq, "{}");
    }
    return subscribers;
}

void SendRaw(int fd, uint16_t id, std::string_view body)
{
    MessageHeader header{};
    header.ucHeadFlag = kHeadFlag;
    header.ucVersion = kVersion;
    header.usMessageId = id;
    header.ulBodyLength = static_cast<uint32_t>(body.size());
    std::string bytes(kHeaderBytes, '\0');
    WriteHeader(reinterpret_cast<uint8_t*>(bytes.data()), header);
    bytes += body;
    if (send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("a subscriber was cut off");
}

// Asks for more than the connection holds, and reads none of it.
void Fill(int fd)
{
    const int few = 4096;
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &few, sizeof few);
    for (int i = 0; i < kFillers; i++) {
        SendRaw(fd, kGetAbilityReq, R"({"Name":"SystemFunction"})");
        SleepUntilNs(MonotonicNs() + 15'000'000); // the server takes one read as one request
    }
}

// Whether fewer answers arrived than were asked for: then the connection was full, and the rest not sent.
bool WasFull(int fd)
{
    std::string bytes;
    for (pollfd polled{fd, POLLIN, 0}; poll(&polled, 1, 200) > 0;) {
        char part[65536];
        const ssize_t got = recv(fd, part, sizeof part, MSG_DONTWAIT);
        if (got <= 0)
            throw std::runtime_error("the subscriber that does not read was cut off");
        bytes.append(part, static_cast<size_t>(got));
    }
    constexpr std::string_view kInEach = "SuppportChangeOnvifPort";
    int answers = 0;
    for (size_t at = bytes.find(kInEach); at != std::string::npos; at = bytes.find(kInEach, at + 1))
        answers++;
    return answers > 0 && answers < kFillers;
}

// Receives until the condition holds for every reader.
template <typename Condition> void ReceiveUntil(std::vector<Subscriber>& subscribers, Condition condition)
{
    const auto readers = std::span(subscribers).first(kReaders);
    for (const TimePoint limit = Clock::now() + kPatience; !std::ranges::all_of(readers, condition);) {
        std::vector<pollfd> polled;
        for (const Subscriber& subscriber : readers)
            polled.push_back({subscriber.session->command().fd(), POLLIN, 0});
        if (poll(polled.data(), polled.size(), PollTimeout(limit)) <= 0)
            throw std::runtime_error("an alarm did not arrive");
        for (size_t i = 0; i < polled.size(); i++)
            if (polled[i].revents != 0)
                readers[i].session->Receive();
        for (Subscriber& subscriber : readers)
            subscriber.session->KeepAlive();
    }
}

// Delays of one alarm at all readers.
void Measure(uint8_t* block, std::vector<Subscriber>& subscribers, std::vector<double>* delaysMs)
{
    for (Subscriber& subscriber : subscribers) {
        subscriber.started = {};
        subscriber.hasStopped = false;
    }
    uint8_t* const status = block + 2 * sizeof(AlarmEntry);
    const TimePoint written = Clock::now();
    StoreLe<uint32_t>(status, 1);
    ReceiveUntil(subscribers, [](const Subscriber& s) { return s.started != TimePoint{}; });
    for (const Subscriber& subscriber : std::span(subscribers).first(kReaders))
        delaysMs->push_back(std::chrono::duration<double, std::milli>(subscriber.started - written).count());
    StoreLe<uint32_t>(status, 0);
    ReceiveUntil(subscribers, [](const Subscriber& s) { return s.hasStopped; });
}

int Run(const char* program, int alarms)
{
    const BenchHosts hosts(kSlowPattern, kSlowPattern, NextRecord::Announced);
    const ShmAttachment block(IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode));
    const ProcessUnderTest server(program);
    std::vector<Subscriber> subscribers = Subscribe();
    const int stuck = subscribers.back().session->command().fd();
    Fill(stuck);
    std::minstd_rand random(1); // writes fall anywhere between two looks at the block
    std::vector<double> delaysMs;
    for (int i = 0; i < alarms; i++) {
        SleepUntilNs(MonotonicNs() + static_cast<int64_t>(random() % 1000) * 1'000'000);
        Measure(block.get(), subscribers, &delaysMs);
        SendRaw(stuck, kKeepaliveReq, ""); // or it would be dropped as silent
    }
    if (!WasFull(stuck))
        throw std::runtime_error("the subscriber that does not read was never full");
    const double worst = *std::ranges::max_element(delaysMs);
    printf("alarm to recorder, %d alarms, %zu readers and one that does not read: p50 %.0f ms, p95 %.0f ms, "
           "max %.0f ms (goal: at most %.0f ms)\n",
           alarms, kReaders, Percentile(delaysMs, 0.5), Percentile(delaysMs, 0.95), worst, kGoalMs);
    return worst <= kGoalMs ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: velmora-alarm-bench SERVER [ALARMS]\n");
        return EXIT_FAILURE;
    }
    try {
        return Run(argv[1], argc > 2 ? std::max(1, atoi(argv[2])) : kDefaultAlarms);
    } catch (const std::exception& error) {
        fprintf(stderr, "velmora-alarm-bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
