#include "recorder/recording.h"

#include <algorithm>
#include <memory>

#include "recorder/write_queue.h"

namespace {

constexpr milliseconds kProgressInterval{500};

// A stream's way from the network to its file.
struct Track {
    std::unique_ptr<WriteQueue> queue; // null when only watching
    std::optional<VideoFormat> format;
};

struct Recording {
    const RecordingOptions& options;
    TimePoint begin = Clock::now();
    std::unique_ptr<LiveView> view;
    std::vector<Track> tracks;
    TimePoint end = TimePoint::max(); // known with the first picture
};

void Take(Recording& recording, size_t stream, const Frame& frame, TimePoint arrival)
{
    Track& track = recording.tracks[stream];
    if (frame.kind == kKeyFrame && !track.format)
        track.format = ReadVideoFormat(frame.header, frame.payload);
    if (frame.kind == kKeyFrame && recording.options.duration && recording.end == TimePoint::max())
        recording.end = arrival + *recording.options.duration;
    if (track.queue != nullptr)
        track.queue->Push({frame.kind, frame.header, {frame.payload.begin(), frame.payload.end()}, arrival});
}

// Descriptors that end the loop: the caller's wish to stop, and a writer's failure.
std::vector<pollfd> EndingFds(const Recording& recording)
{
    std::vector<pollfd> fds;
    if (recording.options.openStopFd)
        fds.push_back({recording.options.openStopFd(), POLLIN, 0});
    for (const Track& track : recording.tracks)
        if (track.queue != nullptr)
            fds.push_back({track.queue->failedFd(), POLLIN, 0});
    return fds;
}

bool AnyReady(const std::vector<pollfd>& fds)
{
    return std::ranges::any_of(fds, [](const pollfd& entry) { return entry.revents != 0; });
}

void RunLoop(Recording& recording, const ProgressSink& progress)
{
    std::vector<pollfd> fds = EndingFds(recording);
    TimePoint nextProgress = Clock::now();
    while (!AnyReady(fds) && Clock::now() < recording.end) {
        recording.view->Pass(std::min(recording.end, nextProgress), fds,
                             [&](size_t stream, const Frame& frame, TimePoint arrival) {
                                 Take(recording, stream, frame, arrival);
                             });
        if (Clock::now() < nextProgress)
            continue;
        nextProgress = Clock::now() + kProgressInterval;
        progress(*recording.view);
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
    if (recording.view == nullptr)
        return summary;
    summary.stats = recording.view->stats(index);
    summary.counters = recording.view->counters(index);
    if (summary.stats.keyFrames > 0)
        summary.toFirstPicture =
            std::chrono::duration_cast<milliseconds>(summary.stats.firstPicture - recording.begin);
    return summary;
}

void Open(Recording& recording)
{
    std::vector<const Stream*> streams;
    for (const RecordingStream& stream : recording.options.streams)
        streams.push_back(stream.stream);
    recording.view =
        std::make_unique<LiveView>(recording.options.address, streams, recording.options.timeout);
    for (size_t i = 0; i < streams.size(); i++) {
        const std::string& output = recording.options.streams[i].output;
        if (!output.empty())
            recording.tracks[i].queue = std::make_unique<WriteQueue>(output);
    }
}

} // namespace

RecordingSummary Record(const RecordingOptions& options, const ProgressSink& progress)
{
    Recording recording{.options = options, .view = nullptr, .tracks = {}};
    recording.tracks.resize(options.streams.size());
    RecordingSummary summary;
    Attempt(summary, [&] {
        Open(recording);
        recording.view->Start();
        RunLoop(recording, progress);
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
