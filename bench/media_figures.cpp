#include "bench/media_figures.h"

#include <algorithm>
#include <cmath>

namespace {

// One figure: how it is named, printed and judged.
struct FigureRow {
    double MediaFigures::*value;
    const char* key;   // in the JSON file
    const char* title; // in the table
    double maxRatio;   // goal: at most this many times the floor's; 0 for none
    double maxValue;   // goal with 15 watchers: at most this; negative for none
    bool summed;       // over the repeats, else the median is taken
};

constexpr FigureRow kFigures[] = {
    {&MediaFigures::cpuSecondsPerGb, "cpu_seconds_per_gb", "CPU s/GB", 1.10, -1, false},
    {&MediaFigures::delayP50Ms, "delay_p50_ms", "p50 ms", 1.10, -1, false},
    {&MediaFigures::delayP99Ms, "delay_p99_ms", "p99 ms", 1.20, -1, false},
    {&MediaFigures::wakeUpsPerSecond, "wake_ups_per_second", "wake-ups/s", 1.05, -1, false},
    {&MediaFigures::pssMb, "pss_mb", "PSS MB", 0, 9, false},
    {&MediaFigures::rssMb, "rss_mb", "RSS MB", 0, 14, false},
    {&MediaFigures::lostFrames, "lost_frames", "lost", 0, 0, true},
    {&MediaFigures::damagedFrames, "damaged_frames", "damaged", 0, 0, true},
    {&MediaFigures::deliveredMb, "delivered_mb", "sent MB", 0, -1, false},
};

constexpr uint32_t kFullHouse = 15;

// What the floor is known to need at 4 Mbit/s and 15 watchers; one that needs over 15 % more is wrong.
constexpr MediaFigures kKnownFloor{
    .cpuSecondsPerGb = 9.2, .delayP50Ms = 1.0, .delayP99Ms = 3.6, .wakeUpsPerSecond = 2100};
constexpr double kFloorTolerance = 1.15;

void PrintRow(const char* name, const MediaFigures& figures)
{
    printf("  %-7s", name);
    for (const FigureRow& row : kFigures)
        printf(" %10.2f", figures.*row.value);
    printf("\n");
}

void PrintHead(const MediaCase& measured)
{
    printf("\n%u Mbit/s, %u watcher%s\n  %-7s", measured.mbitPerSecond, measured.watchers,
           measured.watchers == 1 ? "" : "s", "");
    for (const FigureRow& row : kFigures)
        printf(" %10s", row.title);
    printf("\n");
}

void PrintRatios(const MediaFigures& server, const MediaFigures& floor)
{
    printf("  %-7s", "ratio");
    for (const FigureRow& row : kFigures) {
        if (floor.*row.value > 0)
            printf(" %10.3f", server.*row.value / floor.*row.value);
        else
            printf(" %10s", "-");
    }
    printf("\n");
}

void PrintGoal(const char* title, double value, double goal, const char* unit)
{
    printf("  %-6s %-10s %8.3f, at most %.2f%s\n", value <= goal ? "met" : "MISSED", title, value, goal,
           unit);
}

void PrintGoals(const MediaCase& measured, const MediaFigures& server, const MediaFigures& floor)
{
    for (const FigureRow& row : kFigures) {
        if (row.maxRatio > 0)
            PrintGoal(row.title, server.*row.value / floor.*row.value, row.maxRatio, " times the floor");
        if (row.maxValue >= 0 && measured.watchers == kFullHouse)
            PrintGoal(row.title, server.*row.value, row.maxValue, "");
    }
}

void PrintFloorCheck(const MediaFigures& floor)
{
    printf("  the floor itself, against what it is known to need:\n");
    for (const FigureRow& row : kFigures)
        if (kKnownFloor.*row.value > 0)
            PrintGoal(row.title, floor.*row.value / (kKnownFloor.*row.value), kFloorTolerance, " times");
}

void WriteFigures(FILE* file, const MediaFigures& figures)
{
    const char* separator = "{";
    for (const FigureRow& row : kFigures) {
        fprintf(file, "%s\"%s\":%.6g", separator, row.key, figures.*row.value);
        separator = ",";
    }
    fputs("}", file);
}

void WriteProgram(FILE* file, const char* name, const std::vector<MediaFigures>& repeats)
{
    if (repeats.empty())
        return;
    fprintf(file, ",\n  \"%s\":{\"summary\":", name);
    WriteFigures(file, Summarize(repeats));
    fputs(",\"repeats\":", file);
    const char* separator = "[";
    for (const MediaFigures& figures : repeats) {
        fputs(separator, file);
        WriteFigures(file, figures);
        separator = ",\n    ";
    }
    fputs("]}", file);
}

} // namespace

double Percentile(std::vector<double> values, double share)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const double rank = std::ceil(share * static_cast<double>(values.size()));
    return values[static_cast<size_t>(std::max(rank, 1.0)) - 1];
}

double Median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

MediaFigures Summarize(const std::vector<MediaFigures>& repeats)
{
    MediaFigures summary;
    for (const FigureRow& row : kFigures) {
        std::vector<double> values;
        double sum = 0;
        for (const MediaFigures& figures : repeats) {
            values.push_back(figures.*row.value);
            sum += figures.*row.value;
        }
        summary.*row.value = row.summed ? sum : Median(values);
    }
    return summary;
}

void PrintCases(const std::vector<MediaCase>& cases)
{
    for (const MediaCase& measured : cases) {
        const MediaFigures floor = Summarize(measured.floor);
        PrintHead(measured);
        if (!measured.server.empty()) {
            const MediaFigures server = Summarize(measured.server);
            PrintRow("server", server);
            PrintRow("floor", floor);
            PrintRatios(server, floor);
            PrintGoals(measured, server, floor);
        } else {
            PrintRow("floor", floor);
        }
        if (measured.mbitPerSecond == 4 && measured.watchers == kFullHouse)
            PrintFloorCheck(floor);
    }
}

bool WriteJson(const std::string& path, const std::vector<MediaCase>& cases)
{
    FILE* const file = fopen(path.c_str(), "w");
    if (file == nullptr)
        return false;
    const char* separator = "{\"cases\":[\n ";
    for (const MediaCase& measured : cases) {
        fprintf(file, "%s{\"mbit_per_second\":%u,\"watchers\":%u", separator, measured.mbitPerSecond,
                measured.watchers);
        WriteProgram(file, "server", measured.server);
        WriteProgram(file, "floor", measured.floor);
        fputs("}", file);
        separator = ",\n ";
    }
    fputs("\n]}\n", file);
    return fclose(file) == 0;
}
