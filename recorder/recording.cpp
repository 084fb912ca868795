#include "recorder/recording.h"

#include <algorithm>
#include <memory>

#include "recorder/write_queue.h"

namespace {

constexpr milliseconds kProgressInterval{500};
constexpr milliseconds kReconnectInterval{500};

// A stream's way from the network to its file.
struct Track {
    std::unique_ptr<WriteQueue> queue; // null when only watching
    std::optional<VideoFormat> format;
    StreamStats earlier{}; // of connections that ended
    AssemblerCounters earlierCounters{};
};

struct Recording {
    const RecordingOptions& options;
    TimePoint begin = Clock::now();
    std::unique_ptr<LiveView> view;
    std::vector<Track> tracks;
    TimePoint end = TimePoint::max(); // known with the first picture
    std::vector<pollfd> fds;          // that end the loop: the wish to stop, and a writer's failure
    uint64_t reconnects = 0;
    uint64_t earlierAlarms = 0;
};

void Take(Recording& recording, size_t stream, const Frame& frame, TimePoint arrival)
{
    Track& track = recording.tracks[stream];
    if (frame.kind == kOtherFrame && recording.view->stats(stream).keyFrames == 0)
        return; // nobody can show it
    if (frame.kind == kKeyFrame && !track.format)
        track.format = ReadVideoFormat(frame.header, frame.payload);
    if (frame.kind == kKeyFrame && recording.options.duration && recording.end == TimePoint::max())
        recording.end = arrival + *recording.options.duration;
    if (track.queue != nullptr)
        track.queue->Push({frame.kind, frame.header, {frame.payload.begin(), frame.payload.end()}, arrival});
}

void CollectEndingFds(Recording& recording)
{
    if (recording.options.openStopFd)
        recording.fds.push_back({recording.options.openStopFd(), POLLIN, 0});
    for (const Track& track : recording.tracks)
        if (track.queue != nullptr)
            recording.fds.push_back({track.queue->failedFd(), POLLIN, 0});
}

bool ShallEnd(const Recording& recording)
{
    return Clock::now() >= recording.end ||
           std::ranges::any_of(recording.fds, [](const pollfd& entry) { return entry.revents != 0; });
}

void RunLoop(Recording& recording, const ProgressSink& progress)
{
    TimePoint nextProgress = Clock::now();
    while (!ShallEnd(recording)) {
        recording.view->Pass(std::min(recording.end, nextProgress), recording.fds,
                             [&](size_t stream, const Frame& frame, TimePoint arrival) {
                                 Take(recording, stream, frame, arrival);
                             });
        if (Clock::now() < nextProgress)
            continue;
        nextProgress = Clock::now() + kProgressInterval;
        progress(*recording.view);
    }
}

void OpenView(Recording& recording)
{
    std::vector<const Stream*> streams;
    for (const RecordingStream& stream : recording.options.streams)
        streams.push_back(stream.stream);
    recording.view =
        std::make_unique<LiveView>(recording.options.address, streams, recording.options.timeout);
}

bool HasPicture(const Recording& recording)
{
    return std::ranges::any_of(recording.tracks, [](const Track& track) { return track.format.has_value(); });
}

// A camera that has never sent a picture is reported at once; one that did is waited for.
bool IsWorthReconnecting(const Recording& recording, const Failure& failure)
{
    const bool isNetwork = failure.code() == kExitClosed || failure.code() == kExitTimedOut ||
                           failure.code() == kExitUnreachable || failure.code() == kExitNoMedia;
    return recording.options.reconnect && isNetwork && HasPicture(recording);
}

// Keeps what the connection has brought, and lets it go.
void LeaveView(Recording& recording)
{
    if (recording.view == nullptr)
        return;
    for (size_t i = 0; i < recording.tracks.size(); i++) {
        Track& track = recording.tracks[i];
        StreamStats stats = recording.view->stats(i);
        stats.AddEarlier(track.earlier);
        track.earlier = stats;
        track.earlierCounters.Add(recording.view->counters(i));
    }
    recording.earlierAlarms += recording.view->session().alarms();
    recording.view.reset();
}

// Tries until a session stands again; returns when the recording shall end before that.
void Reconnect(Recording& recording)
{
    LeaveView(recording);
    while (!ShallEnd(recording)) {
        try {
            OpenView(recording);
            recording.view->Start();
            recording.reconnects++;
            return;
        } catch (const Failure& failure) {
            recording.view.reset();
            if (!IsWorthReconnecting(recording, failure))
                throw;
        }
        const TimePoint next = std::min(recording.end, Clock::now() + kReconnectInterval);
        (void)poll(recording.fds.data(), recording.fds.size(), PollTimeout(next));
    }
}

void RunToTheEnd(Recording& recording, const ProgressSink& progress)
{
    while (!ShallEnd(recording)) {
        try {
            RunLoop(recording, progress);
        } catch (const Failure& failure) {
            if (!IsWorthReconnecting(recording, failure))
                throw;
            Reconnect(recording);
        }
    }
}

// Runs a step; the first failure of all steps is the one that the user is told.
void Attempt(RecordingSummary& summary, const std::function<void()>& step)
{
    ExitCode code = kExitOk;
    std::string text;
    try {
        step();
    } catch (const Failure& failure) {
        code = failure.code();
        text = failure.what();
    } catch (const std::exception& failure) {
        code = kExitLocal;
        text = failure.what();
    }
    if (summary.code != kExitOk || code == kExitOk)
        return;
    summary.code = code;
    summary.failure = text;
}

StreamSummary Summarize(const Recording& recording, size_t index)
{
    const Track& track = recording.tracks[index];
    StreamSummary summary;
    summary.stream = recording.options.streams[index].stream->option;
    summary.format = track.format;
    if (track.queue != nullptr) {
        summary.files = track.queue->files();
        summary.dropped = track.queue->dropped();
    }
    if (recording.view != nullptr) {
        summary.stats = recording.view->stats(index);
        summary.counters = recording.view->counters(index);
    }
    summary.stats.AddEarlier(track.earlier);
    summary.counters.Add(track.earlierCounters);
    if (summary.stats.keyFrames > 0)
        summary.toFirstPicture =
            std::chrono::duration_cast<milliseconds>(summary.stats.firstPicture - recording.begin);
    return summary;
}

void Open(Recording& recording)
{
    OpenView(recording);
    for (size_t i = 0; i < recording.tracks.size(); i++) {
        const std::string& output = recording.options.streams[i].output;
        if (!output.empty())
            recording.tracks[i].queue = std::make_unique<WriteQueue>(output);
    }
    CollectEndingFds(recording);
}

} // namespace

RecordingSummary Record(const RecordingOptions& options, const ProgressSink& progress)
{
    Recording recording{.options = options, .view = nullptr, .tracks = {}, .fds = {}};
    recording.tracks.resize(options.streams.size());
    RecordingSummary summary;
    Attempt(summary, [&] {
        Open(recording);
        recording.view->Start();
        RunToTheEnd(recording, progress);
    });
    if (recording.view != nullptr && summary.code == kExitOk)
        recording.view->Stop();
    for (Track& track : recording.tracks)
        if (track.queue != nullptr)
            Attempt(summary, [&] { track.queue->Finish(options.timeout); });
    for (size_t i = 0; i < recording.tracks.size(); i++)
        summary.streams.push_back(Summarize(recording, i));
    if (recording.view != nullptr) {
        summary.sessionId = recording.view->session().id();
        summary.alarms = recording.view->session().alarms();
    }
    summary.alarms += recording.earlierAlarms;
    summary.reconnects = recording.reconnects;
    for (const StreamSummary& stream : summary.streams)
        if (summary.code == kExitOk && stream.stats.keyFrames == 0) {
            summary.code = kExitNoMedia;
            summary.failure =
                PrintHostPort(options.address) + ": no picture received on the " + stream.stream + " stream";
        }
    return summary;
}

double FrameRate(const StreamStats& stats)
{
    const double seconds = std::chrono::duration<double>(stats.lastPicture - stats.firstPicture).count();
    return seconds > 0 ? static_cast<double>(stats.frames() - 1) / seconds : 0;
}
