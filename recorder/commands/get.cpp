#include <CLI/Option.hpp>

#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/config_read.h"
#include "recorder/failure.h"
#include "recorder/output_file.h"

namespace {

struct GetOptions {
    std::string name;
    std::string output = "-";
    bool all = false;
};

int RunGet(const GetOptions& options, const CommonOptions& common)
{
    if (options.all == !options.name.empty())
        throw Failure(kExitUsage, "give the NAME of one object, or --all");
    Session session(common.address(), common.timeout());
    session.Login();
    const JsonPtr tree = options.all ? ReadAllConfig(session) : ReadConfig(session, options.name);
    const std::string text = PrintJson(tree.get(), !common.json) + "\n";
    SaveFile(options.output, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    return kExitOk;
}

} // namespace

CommandRun AddGet(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<GetOptions>();
    app.add_option("NAME", options->name, "Name of the object, such as Simplify.Encode");
    app.add_flag("--all", options->all, "Every object that the camera serves, under its name");
    app.add_option("-o,--output", options->output, "File to write, - for standard output")
        ->capture_default_str();
    return [options, &common] { return RunGet(*options, common); };
}
