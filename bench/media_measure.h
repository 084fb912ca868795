// One measurement: a program is started, so many watchers are connected, and what it costs and delivers is
// taken over a span of whole groups of pictures. README.md says what is measured and how.
//
// All throw std::runtime_error when the program ends, closes a connection or delivers nothing.
#pragma once

#include <cstdint>
#include <string>

#include "bench/bench_hosts.h"
#include "bench/media_figures.h"

struct MediaLoad {
    uint32_t mbit;
    uint32_t watchers;
    uint32_t seconds;
    NextRecord nextRecord;
};

// The server or the floor program, with this driver as its sibling processes.
MediaFigures MeasureServer(const std::string& program, const MediaLoad& load);

// The RTSP server, which makes its frames itself.
MediaFigures MeasureRtsp(const std::string& program, const MediaLoad& load);
