// Cases of a test in a file beside it: a row a line, fields between tabs, "\n" for an end of line within a
// field; '#' begins a comment.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

using TableRow = std::vector<std::string>;

// Throws when there are no rows, so that no test passes without its cases.
inline std::vector<TableRow> ReadTable(const std::string& path, size_t fields)
{
    std::vector<TableRow> rows;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("#"))
            continue;
        for (size_t at = 0; (at = line.find("\\n")) != std::string::npos;)
            line.replace(at, 2, "\n");
        rows.emplace_back(1);
        for (const char byte : line)
            byte == '\t' ? void(rows.back().emplace_back()) : rows.back().back().push_back(byte);
        if (rows.back().size() != fields)
            throw std::runtime_error(path + ": not " + std::to_string(fields) + " fields: " + line);
    }
    return rows.empty() ? throw std::runtime_error(path + ": no rows") : rows;
}
