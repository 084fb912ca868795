// Measures live view: the server, the floor program and an RTSP server in turn, on the same synthetic
// streams, with the same number of watchers. README.md says what is measured and how.
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/committed_ratios.h"
#include "bench/media_figures.h"
#include "bench/media_measure.h"

namespace {

struct Options {
    std::string programs[kPrograms]; // empty: not measured
    std::string json, committed, kept;
    uint32_t repeats = 5;
    uint32_t seconds = 8;
    std::vector<uint32_t> watchers = {1, 4, 15};
    std::vector<uint32_t> mbit = {4, 20};
    NextRecord nextRecord = NextRecord::Blank;
};

// One repeat of one case, the programs in turn, each repeat beginning with another one.
void MeasureOnce(const Options& options, uint32_t repeat, MediaCase& measured)
{
    const MediaLoad load{measured.mbitPerSecond, measured.watchers, options.seconds, options.nextRecord};
    for (size_t turn = 0; turn < kPrograms; ++turn) {
        const size_t program = (turn + repeat) % kPrograms;
        const std::string& path = options.programs[program];
        if (path.empty())
            continue;
        const bool isRtsp = static_cast<Program>(program) == Program::Rtsp;
        measured.repeats[program].push_back(isRtsp ? MeasureRtsp(path, load) : MeasureServer(path, load));
    }
}

// The audiences follow each other within each repeat, so that what a watcher more costs compares neighbours.
std::vector<MediaCase> MeasureRate(uint32_t mbit, const Options& options)
{
    std::vector<MediaCase> cases;
    for (const uint32_t watchers : options.watchers)
        cases.push_back({.mbitPerSecond = mbit, .watchers = watchers});
    for (uint32_t repeat = 0; repeat < options.repeats; ++repeat)
        for (MediaCase& measured : cases) {
            fprintf(stderr, "%u Mbit/s, watchers: %u, repeat %u of %u\n", mbit, measured.watchers, repeat + 1,
                    options.repeats);
            MeasureOnce(options, repeat, measured);
        }
    return cases;
}

[[noreturn]] void Usage(int status)
{
    fprintf(status == 0 ? stdout : stderr,
            "Usage: velmora-media-bench [OPTIONS]     (through tests/isolated.sh)\n"
            "  --server PATH      program under test (Velmora_server beside this program)\n"
            "  --floor PATH       floor program (velmora-media-floor beside this program)\n"
            "  --rtsp PATH        RTSP server (velmora-rtsp-bench beside this program, if it is built)\n"
            "  --floor-only       measure the floor alone\n"
            "  --repeats N        repeats of each case (5)\n"
            "  --seconds N        measured seconds of each repeat (8)\n"
            "  --watchers N       only this number of watchers, 1 to 15 (1, 4 and 15)\n"
            "  --mbit N           only this rate of the main stream, 1 to 25 Mbit/s (4 and 20)\n"
            "  --next blank|announced   what lies where the next record will be (blank)\n"
            "  --json FILE        also write every figure to FILE\n"
            "  --check FILE       also compare ratios with the committed ones of FILE\n"
            "  --keep FILE        also write the ratios to FILE, to be committed\n");
    exit(status);
}

uint32_t Number(const char* text, uint32_t limit)
{
    char* end = nullptr;
    const unsigned long value = strtoul(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value < 1 || value > limit) {
        fprintf(stderr, "velmora-media-bench: '%s' is not a number from 1 to %u\n", text, limit);
        exit(2);
    }
    return static_cast<uint32_t>(value);
}

NextRecord ParseNextRecord(const std::string& text)
{
    if (text != "blank" && text != "announced")
        Usage(2);
    return text == "blank" ? NextRecord::Blank : NextRecord::Announced;
}

Options ParseOptions(int argc, char** argv)
{
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    Options options;
    auto& [server, floor, rtsp] = options.programs;
    server = here / "Velmora_server";
    floor = here / "velmora-media-floor";
    if (access((here / "velmora-rtsp-bench").c_str(), X_OK) == 0)
        rtsp = here / "velmora-rtsp-bench";
    constexpr option kLong[] = {
        {"server", required_argument, nullptr, 's'},   {"floor", required_argument, nullptr, 'f'},
        {"rtsp", required_argument, nullptr, 'p'},     {"floor-only", no_argument, nullptr, 'o'},
        {"repeats", required_argument, nullptr, 'r'},  {"seconds", required_argument, nullptr, 't'},
        {"watchers", required_argument, nullptr, 'w'}, {"mbit", required_argument, nullptr, 'm'},
        {"next", required_argument, nullptr, 'n'},     {"json", required_argument, nullptr, 'j'},
        {"check", required_argument, nullptr, 'c'},    {"keep", required_argument, nullptr, 'k'},
        {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0}};
    for (int name; (name = getopt_long(argc, argv, "h", kLong, nullptr)) != -1;) {
        switch (name) {
        case 's':
            server = optarg;
            break;
        case 'f':
            floor = optarg;
            break;
        case 'p':
            rtsp = optarg;
            break;
        case 'o':
            server.clear();
            rtsp.clear();
            break;
        case 'r':
            options.repeats = Number(optarg, 1000);
            break;
        case 't':
            options.seconds = Number(optarg, 3600);
            break;
        case 'w':
            options.watchers = {Number(optarg, 15)};
            break;
        case 'm':
            options.mbit = {Number(optarg, 25)};
            break;
        case 'n':
            options.nextRecord = ParseNextRecord(optarg);
            break;
        case 'j':
            options.json = optarg;
            break;
        case 'c':
            options.committed = optarg;
            break;
        case 'k':
            options.kept = optarg;
            break;
        case 'h':
            Usage(0);
        default:
            Usage(2);
        }
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = ParseOptions(argc, argv);
    std::vector<MediaCase> cases;
    try {
        for (const uint32_t mbit : options.mbit)
            for (MediaCase& measured : MeasureRate(mbit, options))
                cases.push_back(std::move(measured));
        PrintCases(cases);
        if (!options.json.empty() && !WriteJson(options.json, cases))
            throw std::runtime_error("the figures cannot be written to " + options.json);
        if (!options.kept.empty() && !WriteCommitted(options.kept, Judge(cases)))
            throw std::runtime_error("the ratios cannot be written to " + options.kept);
        if (!options.committed.empty())
            return CompareWithCommitted(options.committed, Judge(cases)) ? 0 : 1;
    } catch (const std::exception& failure) {
        fprintf(stderr, "velmora-media-bench: %s\n", failure.what());
        return 1;
    }
    return 0;
}
