#include <CLI/Option.hpp>

#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/config_change.h"
#include "recorder/failure.h"
#include "recorder/input_file.h"
#include "recorder/settings.h"

namespace {

struct SetOptions {
    std::string name;
    std::string object; // JSON, @FILE or -
    std::string interface;
};

const ConfigName& FindSettable(const std::string& name)
{
    const ConfigName* known = FindConfigName(name);
    if (known == nullptr)
        throw Failure(kExitUsage, "no configuration object is called '" + name + "'");
    if (known->setName == nullptr)
        throw Failure(kExitUsage, "'" + name + "' is read-only");
    return *known;
}

JsonPtr ReadArgument(const std::string& object)
{
    if (object == "-")
        return ReadJsonFile(object);
    return object.starts_with("@") ? ReadJsonFile(object.substr(1)) : ParseJson(object, "the object");
}

// DHCP is set and never shown.
std::vector<JsonDifference> NotTaken(const ConfigName& name, const cJSON* asked, const cJSON* shown)
{
    if (std::string(name.name) == "NetWork.NetDHCP")
        return {};
    return CompareWanted(asked, shown, name.name);
}

void PrintResult(const std::vector<JsonDifference>& changed, const ConfigChange& change)
{
    for (const JsonDifference& difference : changed)
        puts(DifferenceLine(difference).c_str());
    if (change.moved)
        printf("the camera is at %s\n", change.moved->address.c_str());
}

void PrintResultJson(const std::vector<JsonDifference>& changed, const std::vector<JsonDifference>& notTaken,
                     const ConfigChange& change)
{
    const JsonPtr tree(cJSON_CreateObject());
    SetMember(tree.get(), "changed", DifferencesJson(changed));
    SetMember(tree.get(), "notTaken", DifferencesJson(notTaken));
    if (change.moved)
        SetMember(tree.get(), "camera", FoundCameraJson(*change.moved));
    puts(PrintJson(tree.get(), false).c_str());
}

int RunSet(const SetOptions& options, const CommonOptions& common)
{
    const ConfigName& name = FindSettable(options.name);
    const JsonPtr asked = ReadAsked(name, ReadArgument(options.object).get());
    Session session(common.address(), common.timeout());
    session.Login();
    const JsonPtr shown = ReadElement(session, name);
    const ConfigChange change = ChangeConfig(session, name, asked.get(), shown.get(), options.interface);
    const auto changed = CompareWanted(shown.get(), change.shown.get(), name.name);
    const auto notTaken = NotTaken(name, asked.get(), change.shown.get());
    if (common.json)
        PrintResultJson(changed, notTaken, change);
    else
        PrintResult(changed, change);
    for (const JsonDifference& difference : notTaken)
        fprintf(stderr, "velmora: not taken by the camera: %s\n", DifferenceLine(difference).c_str());
    return notTaken.empty() ? kExitOk : kExitDiffers;
}

} // namespace

CommandRun AddSet(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<SetOptions>();
    app.add_option("NAME", options->name, "Name of the object, as get shows it")->required();
    app.add_option("JSON", options->object, "What is to change: JSON, @FILE, or - for standard input")
        ->required();
    AddInterfaceOption(app, options->interface);
    return [options, &common] { return RunSet(*options, common); };
}
