// The figures of one measurement, their summary over repeats, and the goals they are held against.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// One repeat of one program.
struct MediaFigures {
    double cpuSecondsPerGb = 0; // processor seconds per 10^9 delivered bytes
    double delayP50Ms = 0;
    double delayP99Ms = 0;
    double wakeUpsPerSecond = 0;
    double pssMb = 0; // 10^6 bytes
    double rssMb = 0;
    double deliveredMb = 0;
    double lostFrames = 0;    // watchers times frames that did not arrive whole
    double damagedFrames = 0; // of them, what arrived wrong
};

struct MediaCase {
    uint32_t mbitPerSecond;
    uint32_t watchers;
    std::vector<MediaFigures> server; // one per repeat; empty when only the floor is measured
    std::vector<MediaFigures> floor;
};

// The smallest value that is at least as large as the given share (0 to 1] of all values.
double Percentile(std::vector<double> values, double share);

double Median(std::vector<double> values);

// Field by field: the median, but the sum of lost and damaged frames.
MediaFigures Summarize(const std::vector<MediaFigures>& repeats);

// Prints the tables of all cases, the goals and whether each is met.
void PrintCases(const std::vector<MediaCase>& cases);

// Writes every repeat and every summary; returns false when the file cannot be written.
bool WriteJson(const std::string& path, const std::vector<MediaCase>& cases);
