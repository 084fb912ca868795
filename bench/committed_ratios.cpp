#include "bench/committed_ratios.h"

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

// Between two full runs on a quiet machine; delays and the CPU of one watcher more scatter the most.
constexpr double kTolerance = 0.15;

struct CommittedRatio {
    std::string figure;
    uint32_t mbitPerSecond = 0;
    uint32_t watchers = 0;
    double value = 0;
};

struct CommittedRatios {
    double tolerance = 0;
    std::vector<CommittedRatio> ratios;
};

CommittedRatios ReadCommitted(const std::string& path)
{
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    CommittedRatios committed;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        CommittedRatio ratio;
        if (!(words >> ratio.figure) || ratio.figure[0] == '#')
            continue;
        if (ratio.figure == "tolerance")
            words >> committed.tolerance;
        else if (words >> ratio.mbitPerSecond >> ratio.watchers >> ratio.value)
            committed.ratios.push_back(ratio);
        if (!words)
            throw std::runtime_error(path + " holds no ratio in the line: " + line);
    }
    return committed;
}

} // namespace

bool CompareWithCommitted(const std::string& path, const std::vector<Judgement>& judgements)
{
    const CommittedRatios committed = ReadCommitted(path);
    printf("\nAgainst the committed ratios, of which each may be exceeded by %.0f %%:\n",
           committed.tolerance * 100);
    size_t compared = 0, worse = 0;
    for (const CommittedRatio& ratio : committed.ratios)
        for (const Judgement& judged : judgements) {
            if (ratio.figure != judged.figure || ratio.mbitPerSecond != judged.mbitPerSecond ||
                ratio.watchers != judged.watchers)
                continue;
            const bool isWorse = judged.value > ratio.value * (1 + committed.tolerance);
            printf("  %-6s %-24s %2u Mbit/s x %-2u %8.3f, committed %.3f\n", isWorse ? "WORSE" : "same",
                   judged.figure, judged.mbitPerSecond, judged.watchers, judged.value, ratio.value);
            ++compared;
            worse += isWorse ? 1 : 0;
        }
    printf("%zu compared, %zu worse\n", compared, worse);
    return compared > 0 && worse == 0;
}

bool WriteCommitted(const std::string& path, const std::vector<Judgement>& judgements)
{
    FILE* const file = fopen(path.c_str(), "w");
    if (file == nullptr)
        return false;
    fprintf(
        file,
        "# Ratios of a full run of the media benchmark, which `./run bench --check` compares its own with.\n"
        "# A ratio may be so much of the committed one larger:\n"
        "tolerance %.2f\n"
        "# figure, Mbit/s, watchers (0: of several cases together), ratio\n",
        kTolerance);
    for (const Judgement& judged : judgements)
        if (strstr(judged.figure, "_to_") != nullptr)
            fprintf(file, "%-24s %2u %2u %.3f\n", judged.figure, judged.mbitPerSecond, judged.watchers,
                    judged.value);
    return fclose(file) == 0;
}
