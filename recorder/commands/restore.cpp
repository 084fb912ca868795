#include <CLI/Option.hpp>

#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/config_change.h"
#include "recorder/failure.h"
#include "recorder/input_file.h"

namespace {

struct RestoreOptions {
    std::string file;
    std::string interface;
};

void PrintText(const Restoration& result)
{
    for (const std::string& name : result.restored)
        printf("restored %s\n", name.c_str());
    for (const std::string& name : result.readOnly)
        printf("skipped %s: the camera keeps no setting of it\n", name.c_str());
    if (result.moved)
        printf("the camera is at %s\n", result.moved->address.c_str());
    puts("not covered: whether DHCP is on, which the camera never shows");
}

JsonPtr TextList(const std::vector<std::string>& texts)
{
    JsonPtr list(cJSON_CreateArray());
    for (const std::string& text : texts)
        cJSON_AddItemToArray(list.get(), cJSON_CreateString(text.c_str()));
    return list;
}

void PrintTree(const Restoration& result)
{
    const JsonPtr tree(cJSON_CreateObject());
    SetMember(tree.get(), "restored", TextList(result.restored));
    SetMember(tree.get(), "skipped", TextList(result.readOnly));
    SetMember(tree.get(), "failed", TextList(result.failed));
    SetMember(tree.get(), "remaining", DifferencesJson(result.remaining));
    if (result.moved)
        SetMember(tree.get(), "camera", FoundCameraJson(*result.moved));
    puts(PrintJson(tree.get(), false).c_str());
}

int RunRestore(const RestoreOptions& options, const CommonOptions& common)
{
    const JsonPtr before = ReadJsonFile(options.file);
    if (!cJSON_IsObject(before.get()))
        throw Failure(kExitUsage, options.file + " is not what get --all writes");
    Session session(common.address(), common.timeout());
    session.Login();
    const Restoration result = RestoreConfig(session, before.get(), options.interface);
    if (common.json)
        PrintTree(result);
    else
        PrintText(result);
    for (const std::string& line : result.failed)
        fprintf(stderr, "velmora: not restored: %s\n", line.c_str());
    for (const JsonDifference& difference : result.remaining)
        fprintf(stderr, "velmora: not restored: %s\n", DifferenceLine(difference).c_str());
    return result.failed.empty() && result.remaining.empty() ? kExitOk : kExitDiffers;
}

} // namespace

CommandRun AddRestore(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<RestoreOptions>();
    app.add_option("FILE", options->file, "What get --all has written, - for standard input")->required();
    AddInterfaceOption(app, options->interface);
    return [options, &common] { return RunRestore(*options, common); };
}
