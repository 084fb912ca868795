// A whole recording: streams of one camera, each to its file, until the time is over, somebody stops it or
// something fails; and what there is to say about it then.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "recorder/failure.h"
#include "recorder/live_view.h"
#include "recorder/video_format.h"

struct RecordingStream {
    const Stream* stream;
    std::string output; // empty: only watch and count
};

struct RecordingOptions {
    HostPort address;
    milliseconds timeout{10'000};
    std::vector<RecordingStream> streams;
    std::optional<milliseconds> duration; // counted from the first picture
    bool reconnect = false;               // go on when the camera comes back, once a picture has come
    // Called when the session stands: returns a descriptor that becomes readable when the recording shall
    // end. Until then there is nothing to end well, and signals may end the process as ever.
    std::function<int()> openStopFd;
};

struct StreamSummary {
    std::string stream;
    std::vector<std::string> files;
    StreamStats stats;
    AssemblerCounters counters;
    uint64_t dropped = 0;              // frames that the file was too slow for
    std::optional<VideoFormat> format; // of the first picture
    milliseconds toFirstPicture{0};    // from the start of the connect
};

struct RecordingSummary {
    ExitCode code = kExitOk;
    std::string failure; // the line for the user; empty when all is well
    uint32_t sessionId = 0;
    uint64_t alarms = 0;
    uint64_t reconnects = 0;
    std::vector<StreamSummary> streams;
};

// Called now and then while the recording runs; the streams' figures are those of the moment.
using ProgressSink = std::function<void(const LiveView& view)>;

// Never throws: whatever ends the recording stands in the summary, and files are closed so that they play.
RecordingSummary Record(const RecordingOptions& options, const ProgressSink& progress);

// Frames a second between the first and the latest picture; 0 when there is no span to count in.
double FrameRate(const StreamStats& stats);
