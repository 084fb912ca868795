#include <CLI/Option.hpp>

#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/json.h"
#include "recorder/output_file.h"
#include "recorder/snapshot.h"

namespace {

struct SnapshotOptions {
    std::string output;
    std::string stream = "main";
};

void Report(const SnapshotOptions& options, const VideoFormat& format, bool json)
{
    FILE* out = options.output == "-" ? stderr : stdout; // the picture itself may be what stdout carries
    if (!json) {
        fprintf(out, "%s: %dx%d, from %s\n", options.output.c_str(), format.width, format.height,
                CodecText(format.codec));
        return;
    }
    const JsonPtr tree(cJSON_CreateObject());
    cJSON_AddStringToObject(tree.get(), "file", options.output.c_str());
    cJSON_AddStringToObject(tree.get(), "codec", CodecText(format.codec));
    cJSON_AddNumberToObject(tree.get(), "width", format.width);
    cJSON_AddNumberToObject(tree.get(), "height", format.height);
    fprintf(out, "%s\n", PrintJson(tree.get(), false).c_str());
}

} // namespace

CommandRun AddSnapshot(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<SnapshotOptions>();
    app.add_option("FILE", options->output, "PNG file to write, - for standard output")->required();
    app.add_option("--stream", options->stream, "main, extra, extra1 or extra2")->capture_default_str();
    return [options, &common] {
        const Picture picture = TakeSnapshot(common.address(), FindStream(options->stream), common.timeout());
        SaveFile(options->output, picture.png);
        Report(*options, picture.format, common.json);
        return 0;
    };
}
