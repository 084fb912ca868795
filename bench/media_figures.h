// The figures of one measurement, their summary over repeats, and the goals they are held against.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// One repeat of one program.
struct MediaFigures {
    double cpuSecondsPerGb = 0; // processor seconds per 10^9 delivered bytes
    double cpuMsPerSecond = 0;
    double servingMsPerSecond = 0; // of that, all but looking for frames in the rings
    double delayP50Ms = 0;
    double delayP99Ms = 0;
    double wakeUpsPerSecond = 0;
    double pssMb = 0; // 10^6 bytes
    double rssMb = 0;
    double deliveredMb = 0;
    double lostFrames = 0;    // watchers times frames that did not arrive whole
    double damagedFrames = 0; // of them, what arrived wrong
};

enum class Program { Server, Floor, Rtsp };
inline constexpr size_t kPrograms = 3;

struct MediaCase {
    uint32_t mbitPerSecond;
    uint32_t watchers;
    std::vector<MediaFigures> repeats[kPrograms] = {}; // empty for a program that is not measured

    [[nodiscard]] const std::vector<MediaFigures>& Of(Program program) const
    {
        return repeats[static_cast<size_t>(program)];
    }
};

// What is held against a goal: the server's figure next to another program's, or in megabytes.
struct Judgement {
    const char* figure; // name in files
    const char* title;
    uint32_t mbitPerSecond;
    uint32_t watchers; // 0 for what several cases give together
    double value;
    double goal; // at most this

    [[nodiscard]] bool IsMet() const { return value <= goal; }
};

// The smallest value that is at least as large as the given share (0 to 1] of all values.
double Percentile(std::vector<double> values, double share);

double Median(std::vector<double> values);

// Field by field: the median, but the sum of lost and damaged frames.
MediaFigures Summarize(const std::vector<MediaFigures>& repeats);

// Processor milliseconds a second for each watcher more, from the cases of this rate with the fewest and the
// most watchers: the median over pairs of repeats, which ran close to each other. 0 without two such cases.
// `cpu` is one of the figures above: a watcher more causes no look more, but the cost of thousands of looks
// varies by more than what it does cause.
double CpuPerAddedWatcher(const std::vector<MediaCase>& cases, uint32_t mbitPerSecond, Program program,
                          double MediaFigures::*cpu = &MediaFigures::servingMsPerSecond);

// Everything that has a goal and was measured, figure by figure.
std::vector<Judgement> Judge(const std::vector<MediaCase>& cases);

// Prints the tables of all cases, the goals and whether each is met.
void PrintCases(const std::vector<MediaCase>& cases);

// Writes every repeat, every summary and what was judged; returns false when the file cannot be written.
bool WriteJson(const std::string& path, const std::vector<MediaCase>& cases);
