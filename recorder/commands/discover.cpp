#include <CLI/Option.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/discovery.h"
#include "recorder/failure.h"

namespace {

struct DiscoverOptions {
    std::string interface;
    double seconds = 3;
};

using Row = std::array<std::string, 6>;

std::string PortText(int port)
{
    return port != 0 ? std::to_string(port) : "-";
}

void PrintTable(const FoundCameras& cameras)
{
    std::vector<Row> rows = {{"ADDRESS", "MAC", "SERIAL", "NAME", "TCP", "HTTP"}};
    for (const auto& [key, camera] : cameras)
        rows.push_back({camera.address, camera.mac, Printable(camera.serial), Printable(camera.hostName),
                        PortText(camera.tcpPort), PortText(camera.httpPort)});
    std::array<size_t, 6> widths{};
    for (const Row& row : rows)
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], row[i].size());
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); i++)
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        puts(line.substr(0, line.find_last_not_of(' ') + 1).c_str());
    }
}

void PrintList(const FoundCameras& cameras)
{
    const JsonPtr list(cJSON_CreateArray());
    for (const auto& [key, camera] : cameras)
        cJSON_AddItemToArray(list.get(), FoundCameraJson(camera).release());
    puts(PrintJson(list.get(), false).c_str());
}

int RunDiscover(const DiscoverOptions& options, bool json)
{
    SearchSocket socket(options.interface);
    const auto length = milliseconds(static_cast<int64_t>(options.seconds * 1000));
    const FoundCameras cameras = Search(socket, Clock::now() + length, [](const auto&) { return false; });
    if (json)
        PrintList(cameras);
    else if (!cameras.empty())
        PrintTable(cameras);
    if (cameras.empty())
        throw Failure(kExitTimedOut, "no camera answers the search");
    return kExitOk;
}

} // namespace

CommandRun AddDiscover(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<DiscoverOptions>();
    AddInterfaceOption(app, options->interface);
    app.add_option("--timeout", options->seconds, "Seconds to listen for answers")
        ->check(SecondsBetween(0.1, 3600))
        ->capture_default_str();
    return [options, &common] { return RunDiscover(*options, common.json); };
}
