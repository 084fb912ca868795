#include "recorder/stress/figures.h"

#include <algorithm>
#include <charconv>

#include "recorder/failure.h"

namespace {

bool IsTime(const std::string& figure)
{
    return figure.ends_with("_ms");
}

std::string Broken(const Bound& bound, const std::string& found)
{
    return bound.figure + " is " + found + ", wanted at " + (bound.isLeast ? "least " : "most ") +
           std::to_string(bound.value);
}

} // namespace

Bound ParseBound(const std::string& text, bool isLeast)
{
    const size_t equals = text.find('=');
    Bound bound{text.substr(0, equals), 0, isLeast};
    const char* const begin = text.data() + (equals == std::string::npos ? text.size() : equals + 1);
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, bound.value);
    if (bound.figure.empty() || error != std::errc{} || stop != end)
        throw Failure(kExitUsage, "'" + text + "' is no FIGURE=NUMBER");
    return bound;
}

std::vector<std::string> BrokenBounds(const Figures& figures, const std::vector<Bound>& bounds,
                                      int64_t noiseMs)
{
    std::vector<std::string> broken;
    for (const Bound& bound : bounds) {
        const auto found = std::ranges::find(figures, bound.figure, &Figures::value_type::first);
        if (found == figures.end()) {
            broken.push_back(Broken(bound, "not measured"));
            continue;
        }
        const int64_t most = bound.value + (IsTime(bound.figure) ? noiseMs : 0);
        if (bound.isLeast ? found->second < bound.value : found->second > most)
            broken.push_back(Broken(bound, std::to_string(found->second)));
    }
    return broken;
}

std::string FiguresText(const Figures& figures)
{
    std::string text;
    for (const auto& [name, value] : figures)
        text += name + " " + std::to_string(value) + "\n";
    return text;
}

std::string FiguresJson(const Figures& figures)
{
    std::string text;
    for (const auto& [name, value] : figures)
        text += (text.empty() ? "{\"" : ",\"") + name + "\":" + std::to_string(value);
    return text + "}\n";
}
