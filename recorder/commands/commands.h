// The commands of `velmora`: one file each, one row each in main.cpp.
//
// A command adds its own options to its CLI11 subcommand and returns what runs when the user names it. That
// returns the exit code, or throws Failure, whose text main.cpp shows as the one line of the error.
#pragma once

#include <CLI/App.hpp>

#include <functional>

#include "recorder/connection.h"

// Options that every command has, but that a command without HOST says itself how long it waits.
struct CommonOptions {
    std::string host;
    double timeoutSeconds = 10;
    bool json = false;

    [[nodiscard]] HostPort address() const { return ParseHostPort(host); }
    [[nodiscard]] milliseconds timeout() const
    {
        return milliseconds(static_cast<int64_t>(timeoutSeconds * 1000));
    }
};

// A number of seconds within limits. "nan" is refused too: it lies outside of no range, and within none.
inline CLI::Validator SecondsBetween(double least, double most)
{
    return {[=](std::string& text) -> std::string {
                double seconds = 0;
                if (CLI::detail::lexical_cast(text, seconds) && seconds >= least && seconds <= most)
                    return {};
                return "'" + text + "' is no number of seconds from " + CLI::detail::to_string(least) +
                       " to " + CLI::detail::to_string(most);
            },
            "SECONDS"};
}

using CommandRun = std::function<int()>;
using AddCommand = CommandRun(CLI::App& app, const CommonOptions& common);

AddCommand AddAlarms;
AddCommand AddConsole;
AddCommand AddDiff;
AddCommand AddDiscover;
AddCommand AddFactoryDefault;
AddCommand AddGet;
AddCommand AddInfo;
AddCommand AddKeyFrame;
AddCommand AddLive;
AddCommand AddPreset;
AddCommand AddPtz;
AddCommand AddRaw;
AddCommand AddReboot;
AddCommand AddRestore;
AddCommand AddSet;
AddCommand AddSetAddress;
AddCommand AddSnapshot;
AddCommand AddStress;
AddCommand AddTime;
AddCommand AddTour;
AddCommand AddUsers;

// The option of every command that may search the network.
inline void AddInterfaceOption(CLI::App& app, std::string& interface)
{
    app.add_option("--interface", interface,
                   "Network interface to search on, such as eth0; all that can broadcast when left out");
}
