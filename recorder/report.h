// What the user reads about a recording: the progress line, the summary as text and as JSON.
#pragma once

#include <string>

#include "recorder/recording.h"

// One line without its end: time, frames, frames a second, kbit/s and gaps of each stream.
std::string ProgressLine(const RecordingOptions& options, const LiveView& view, TimePoint now);
std::string SummaryText(const RecordingSummary& summary);
std::string SummaryJson(const RecordingSummary& summary);
