// Reads a file from end to end and tells whether its video can be passed through unchanged, and what a
// viewer will see of it then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "hosts/stream_facts.h"

struct VideoProbe {
    std::string problem;  // why the file does not fit the wire; empty when it does
    StreamFacts facts;    // of a file that fits
    int64_t lengthUs = 0; // of one pass over it
};

// Throws std::runtime_error when the file cannot be read or has no video.
VideoProbe ProbeVideo(const std::string& path, size_t frameLimit);
