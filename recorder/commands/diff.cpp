#include <CLI/Option.hpp>

#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/config_read.h"
#include "recorder/failure.h"
#include "recorder/input_file.h"

CommandRun AddDiff(CLI::App& app, const CommonOptions& common)
{
    const auto file = std::make_shared<std::string>();
    app.add_option("FILE", *file, "What get --all has written, - for standard input")->required();
    return [file, &common] {
        const JsonPtr before = ReadJsonFile(*file);
        Session session(common.address(), common.timeout());
        session.Login();
        const auto differences = CompareJson(before.get(), ReadAllConfig(session).get());
        if (common.json)
            puts(PrintJson(DifferencesJson(differences).get(), false).c_str());
        else
            for (const JsonDifference& difference : differences)
                puts(DifferenceLine(difference).c_str());
        return differences.empty() ? kExitOk : kExitDiffers;
    };
}
