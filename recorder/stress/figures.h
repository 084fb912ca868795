// What a stress scene has measured, and the bounds that the user sets.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// In the order in which they are printed.
using Figures = std::vector<std::pair<std::string, int64_t>>;

// A limit for one figure.
struct Bound {
    std::string figure;
    int64_t value;
    bool isLeast; // else the figure may be at most that value
};

// Reads "FIGURE=VALUE"; throws kExitUsage.
Bound ParseBound(const std::string& text, bool isLeast);

// One line, such as "gap_ms is 612, wanted at most 450", for each bound that does not hold. A time may
// exceed its bound by `noiseMs`, by how much this machine was late itself. A figure that the scene does
// not have holds no bound.
std::vector<std::string> BrokenBounds(const Figures& figures, const std::vector<Bound>& bounds,
                                      int64_t noiseMs);

// "NAME VALUE" a line, or one JSON object.
std::string FiguresText(const Figures& figures);
std::string FiguresJson(const Figures& figures);
