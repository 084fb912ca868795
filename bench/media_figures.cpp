#include "bench/media_figures.h"

#include <algorithm>
#include <cmath>

namespace {

// One figure: how it is named and printed.
struct FigureRow {
    double MediaFigures::*value;
    const char* key;   // in the JSON file
    const char* title; // in the table
    bool summed;       // over the repeats, else the median is taken
};

constexpr FigureRow kFigures[] = {
    {&MediaFigures::cpuSecondsPerGb, "cpu_seconds_per_gb", "CPU s/GB", false},
    {&MediaFigures::cpuMsPerSecond, "cpu_ms_per_second", "CPU ms/s", false},
    {&MediaFigures::servingMsPerSecond, "serving_ms_per_second", "serving", false},
    {&MediaFigures::delayP50Ms, "delay_p50_ms", "p50 ms", false},
    {&MediaFigures::delayP99Ms, "delay_p99_ms", "p99 ms", false},
    {&MediaFigures::wakeUpsPerSecond, "wake_ups_per_second", "wake-ups/s", false},
    {&MediaFigures::pssMb, "pss_mb", "PSS MB", false},
    {&MediaFigures::rssMb, "rss_mb", "RSS MB", false},
    {&MediaFigures::lostFrames, "lost_frames", "lost", true},
    {&MediaFigures::damagedFrames, "damaged_frames", "damaged", true},
    {&MediaFigures::deliveredMb, "delivered_mb", "sent MB", false},
};

// The server's figure at each case next to the floor's.
struct FloorGoal {
    double MediaFigures::*value;
    const char* figure;
    const char* title;
    double goal;
};

constexpr FloorGoal kFloorGoals[] = {
    {&MediaFigures::cpuSecondsPerGb, "cpu_to_floor", "CPU, times the floor's", 0.75},
    {&MediaFigures::delayP50Ms, "p50_to_floor", "median delay, times the floor's", 1.10},
    {&MediaFigures::delayP99Ms, "p99_to_floor", "p99 of the delay, times the floor's", 1.20},
    {&MediaFigures::wakeUpsPerSecond, "wake_ups_to_floor", "wake-ups, times the floor's", 1.05},
};

// The server's own figure with a full house.
constexpr FloorGoal kOwnGoals[] = {
    {&MediaFigures::pssMb, "pss_mb", "PSS, MB", 8},
    {&MediaFigures::rssMb, "rss_mb", "RSS, MB", 14},
    {&MediaFigures::lostFrames, "lost_frames", "lost frames", 0},
    {&MediaFigures::damagedFrames, "damaged_frames", "damaged frames", 0},
};

struct WatcherGoal {
    uint32_t mbitPerSecond;
    double goal;
};
constexpr WatcherGoal kWatcherGoals[] = {{4, 0.75}, {20, 0.95}};

constexpr const char* kProgramNames[kPrograms] = {"server", "floor", "rtsp"};

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

void PrintRatios(const MediaFigures& server, Program other, const MediaFigures& figures)
{
    printf("  /%-6s", kProgramNames[static_cast<size_t>(other)]);
    for (const FigureRow& row : kFigures) {
        if (figures.*row.value > 0)
            printf(" %10.3f", server.*row.value / (figures.*row.value));
        else
            printf(" %10s", "-");
    }
    printf("\n");
}

void PrintCase(const MediaCase& measured)
{
    PrintHead(measured);
    for (size_t program = 0; program < kPrograms; ++program)
        if (!measured.repeats[program].empty())
            PrintRow(kProgramNames[program], Summarize(measured.repeats[program]));
        else if (program == static_cast<size_t>(Program::Rtsp))
            printf("  %-7s not built\n", kProgramNames[program]);
    if (measured.Of(Program::Server).empty())
        return;
    for (const Program other : {Program::Floor, Program::Rtsp})
        if (!measured.Of(other).empty())
            PrintRatios(Summarize(measured.Of(Program::Server)), other, Summarize(measured.Of(other)));
}

void PrintGoal(const Judgement& judged)
{
    printf("  %-6s %2u Mbit/s", judged.IsMet() ? "met" : "MISSED", judged.mbitPerSecond);
    if (judged.watchers > 0)
        printf(" x %-2u", judged.watchers);
    else
        printf("     ");
    printf(" %8.3f, at most %.2f: %s\n", judged.value, judged.goal, judged.title);
}

void PrintFloorCheck(const MediaFigures& floor)
{
    printf("\nThe floor itself with 15 watchers at 4 Mbit/s, against what it is known to need:\n");
    for (const FigureRow& row : kFigures)
        if (kKnownFloor.*row.value > 0)
            PrintGoal({row.key, row.title, 4, kFullHouse, floor.*row.value / (kKnownFloor.*row.value),
                       kFloorTolerance});
}

void PrintAddedWatchers(const std::vector<MediaCase>& cases)
{
    printf("\nCPU ms/s for each watcher more");
    for (const char* const name : kProgramNames)
        printf(" %10s", name);
    for (const FigureRow& row : kFigures)
        for (const WatcherGoal& rate : kWatcherGoals) {
            if (row.value != &MediaFigures::cpuMsPerSecond && row.value != &MediaFigures::servingMsPerSecond)
                continue;
            printf("\n  %2u Mbit/s, %-16s", rate.mbitPerSecond, row.title);
            for (size_t program = 0; program < kPrograms; ++program)
                printf(" %10.3f", CpuPerAddedWatcher(cases, rate.mbitPerSecond, static_cast<Program>(program),
                                                     row.value));
        }
    printf("\n");
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

void WriteJudgements(FILE* file, const std::vector<Judgement>& judgements)
{
    const char* separator = "";
    for (const Judgement& judged : judgements) {
        fprintf(file,
                "%s\n {\"figure\":\"%s\",\"title\":\"%s\",\"mbit_per_second\":%u,\"watchers\":%u,"
                "\"value\":%.4g,\"goal\":%.4g}",
                separator, judged.figure, judged.title, judged.mbitPerSecond, judged.watchers, judged.value,
                judged.goal);
        separator = ",";
    }
}

// The case of this rate with the most watchers, or with the fewest.
const MediaCase* FindCase(const std::vector<MediaCase>& cases, uint32_t mbitPerSecond, bool wantsMost)
{
    const MediaCase* found = nullptr;
    for (const MediaCase& measured : cases)
        if (measured.mbitPerSecond == mbitPerSecond &&
            (found == nullptr || (measured.watchers > found->watchers) == wantsMost))
            found = &measured;
    return found;
}

void JudgeByFloor(const FloorGoal& goal, const MediaCase& measured, std::vector<Judgement>& judgements)
{
    const double floor = Summarize(measured.Of(Program::Floor)).*goal.value;
    if (floor > 0 && !measured.Of(Program::Server).empty())
        judgements.push_back({goal.figure, goal.title, measured.mbitPerSecond, measured.watchers,
                              Summarize(measured.Of(Program::Server)).*goal.value / floor, goal.goal});
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

double CpuPerAddedWatcher(const std::vector<MediaCase>& cases, uint32_t mbitPerSecond, Program program,
                          double MediaFigures::*cpu)
{
    const MediaCase* const few = FindCase(cases, mbitPerSecond, false);
    const MediaCase* const many = FindCase(cases, mbitPerSecond, true);
    if (few == many)
        return 0;
    std::vector<double> slopes;
    const size_t repeats = std::min(few->Of(program).size(), many->Of(program).size());
    for (size_t repeat = 0; repeat < repeats; ++repeat)
        slopes.push_back((many->Of(program)[repeat].*cpu - few->Of(program)[repeat].*cpu) /
                         (many->watchers - few->watchers));
    return Median(slopes);
}

std::vector<Judgement> Judge(const std::vector<MediaCase>& cases)
{
    std::vector<Judgement> judgements;
    for (const WatcherGoal& rate : kWatcherGoals) {
        const double server = CpuPerAddedWatcher(cases, rate.mbitPerSecond, Program::Server);
        const double rtsp = CpuPerAddedWatcher(cases, rate.mbitPerSecond, Program::Rtsp);
        if (server > 0 && rtsp > 0) // otherwise the machine was too busy to tell
            judgements.push_back({"added_watcher_to_rtsp",
                                  "CPU of each watcher more, times the RTSP server's", rate.mbitPerSecond, 0,
                                  server / rtsp, rate.goal});
    }
    for (const FloorGoal& goal : kFloorGoals)
        for (const MediaCase& measured : cases)
            JudgeByFloor(goal, measured, judgements);
    for (const FloorGoal& goal : kOwnGoals)
        for (const MediaCase& measured : cases)
            if (measured.watchers == kFullHouse && !measured.Of(Program::Server).empty())
                judgements.push_back({goal.figure, goal.title, measured.mbitPerSecond, measured.watchers,
                                      Summarize(measured.Of(Program::Server)).*goal.value, goal.goal});
    return judgements;
}

void PrintCases(const std::vector<MediaCase>& cases)
{
    for (const MediaCase& measured : cases)
        PrintCase(measured);
    PrintAddedWatchers(cases);
    printf("\nGoals\n");
    for (const Judgement& judged : Judge(cases))
        PrintGoal(judged);
    for (const MediaCase& measured : cases)
        if (measured.mbitPerSecond == 4 && measured.watchers == kFullHouse)
            PrintFloorCheck(Summarize(measured.Of(Program::Floor)));
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
        for (size_t program = 0; program < kPrograms; ++program)
            WriteProgram(file, kProgramNames[program], measured.repeats[program]);
        fputs("}", file);
        separator = ",\n ";
    }
    fputs("\n],\"judgements\":[", file);
    WriteJudgements(file, Judge(cases));
    fputs("\n]}\n", file);
    return fclose(file) == 0;
}
