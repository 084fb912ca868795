// The table of the calls that fail (calls.txt), and its cases: a row in one of its phases.
#pragma once

#include <algorithm>
#include <cstring>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/failures/control.h"

inline constexpr const char* kCallNames[] = {
#define CALL(name) #name,
#include "calls.inc"
};

struct Row {
    std::string function, error;
    int call, number; // of its error
    long result;
    bool isMade;
    std::vector<std::string> phases, texts;
    bool mayBeSilent;
};

inline int ErrorNumber(const std::string& name)
{
    for (int number = 1; number < 200; number++)
        if (const char* known = strerrorname_np(number); known != nullptr && name == known)
            return number;
    return 0;
}

inline std::vector<std::string> Split(const std::string& text, const std::string& separator)
{
    std::vector<std::string> parts;
    for (size_t from = 0, end = 0; end != std::string::npos; from = end + separator.size()) {
        end = text.find(separator, from);
        parts.push_back(text.substr(from, end - from));
    }
    return parts;
}

inline Row ReadRow(const std::string& line)
{
    Row row{};
    row.texts = Split(line, " | ");
    std::istringstream words(row.texts[0]);
    std::string result, phases;
    words >> row.function >> result >> row.error >> phases;
    if (const size_t at = phases.find("serving"); at != std::string::npos)
        phases.replace(at, strlen("serving"), "login,live,set,alarm,search,console,background");
    row.phases = Split(phases, ",");
    row.isMade = result.starts_with("done:");
    result.erase(0, row.isMade ? strlen("done:") : 0);
    row.number = ErrorNumber(row.error);
    row.result = ErrorNumber(result) != 0 ? ErrorNumber(result) : std::stol(result);
    row.error = row.number == 0 ? result : row.error; // that names it
    row.call = static_cast<int>(std::ranges::find(kCallNames, row.function) - kCallNames);
    row.texts.erase(row.texts.begin());
    row.mayBeSilent = std::erase(row.texts, "-") > 0 || row.texts.empty();
    return row;
}

inline std::vector<Row> ReadRows()
{
    std::vector<Row> rows;
    std::ifstream file(VELMORA_CALLS);
    for (std::string line; std::getline(file, line);)
        if (!line.starts_with('#'))
            rows.push_back(ReadRow(line));
    return rows;
}

struct Case {
    Row row;
    std::string phase;
};

inline void PrintTo(const Case& c, std::ostream* out)
{
    *out << c.phase;
}

// Those that wait longest come first. What fails in the background does so in any other phase.
inline std::vector<Case> Cases()
{
    std::vector<Case> cases;
    for (const Row& row : ReadRows())
        for (const std::string& phase : row.phases)
            if (phase != "background")
                cases.push_back({row, phase});
    std::stable_partition(cases.begin(), cases.end(),
                          [](const Case& c) { return c.phase == "operations" || c.phase == "alarm"; });
    return cases;
}
