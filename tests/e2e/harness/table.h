// Tables of test data: rows of cells between tabs; lines that begin with # are remarks.
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// Every row has so many cells, of which the last ones may be empty.
inline std::vector<std::vector<std::string>> ReadTable(const std::string& file, size_t cells = 1)
{
    std::vector<std::vector<std::string>> rows;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream text(line);
        for (std::string& cell : rows.emplace_back(cells))
            std::getline(text, cell, '\t');
    }
    return rows;
}
