// Measures live view: the server, the floor program and an RTSP server in turn, on the same synthetic
// streams, with the same number of watchers. README.md says what is measured and how.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/committed_ratios.h"
#include "bench/media_figures.h"
#include "bench/media_measure.h"

namespace {

constexpr int kWrongCommandLine = 2;

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

} // namespace

int main(int argc, char** argv)
{
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::map<std::string, NextRecord> nextRecords = {{"blank", NextRecord::Blank},
                                                           {"announced", NextRecord::Announced}};
    Options options;
    auto& [server, floor, rtsp] = options.programs;
    server = here / "Velmora_server";
    floor = here / "velmora-media-floor";
    if (exists(here / "velmora-rtsp-bench")) // built where its library is installed
        rtsp = here / "velmora-rtsp-bench";
    CLI::App app("Measures live view beside the floor and an RTSP server (through tests/isolated.sh)",
                 "velmora-media-bench");
    app.option_defaults()->always_capture_default();
    app.add_option("--server", server, "Program under test")->check(CLI::ExistingFile);
    app.add_option("--floor", floor, "Floor program")->check(CLI::ExistingFile);
    app.add_option("--rtsp", rtsp, "RTSP server")->check(CLI::ExistingFile);
    bool floorOnly = false;
    app.add_flag("--floor-only", floorOnly, "Measure the floor alone");
    app.add_option("--repeats", options.repeats, "Repeats of each case")->check(CLI::Range(1, 1000));
    app.add_option("--seconds", options.seconds, "Measured seconds of each repeat")
        ->check(CLI::Range(1, 3600));
    app.add_option("--watchers", options.watchers, "Audiences")->check(CLI::Range(1, 15));
    app.add_option("--mbit", options.mbit, "Rates of the main stream, Mbit/s")->check(CLI::Range(1, 25));
    app.add_option("--next", options.nextRecord, "What lies where the next record will be")
        ->transform(CLI::CheckedTransformer(nextRecords))
        ->default_str("blank");
    app.add_option("--json", options.json, "Also write every figure to this file");
    app.add_option("--check", options.committed, "Also compare ratios with the committed ones of this file")
        ->check(CLI::ExistingFile);
    app.add_option("--keep", options.kept, "Also write the ratios to this file, to be committed");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongCommandLine;
    }
    if (floorOnly) {
        server.clear();
        rtsp.clear();
    }
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
