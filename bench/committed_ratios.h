// The ratios that the last accepted run gave, as a file that is kept with the sources. A line is a comment
// ("#"), the tolerance ("tolerance 0.15": a ratio may be so much of the committed one larger) or a ratio:
// figure, Mbit/s, watchers (0: of several cases together), ratio.
#pragma once

#include <string>
#include <vector>

#include "bench/media_figures.h"

// Prints each judgement that has a committed value beside it. Returns false when one has grown by more than
// the tolerance, or when nothing could be compared. Throws std::runtime_error for a file that cannot be
// read or holds something else.
bool CompareWithCommitted(const std::string& path, const std::vector<Judgement>& judgements);

// Writes the ratios of a run as a file to be committed. Returns false when it cannot be written.
bool WriteCommitted(const std::string& path, const std::vector<Judgement>& judgements);
