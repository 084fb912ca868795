// Draws what `velmora-media-bench --json` has judged: a panel for each figure, a bar for each case, a mark
// where the goal is. Readable on light and dark backgrounds.
//
//   velmora-figures-svg FIGURES.json DRAWING.svg
#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

struct Bar {
    std::string label;
    double value;
    double goal;
};

struct Panel {
    std::string figure;
    std::string title;
    std::vector<Bar> bars;
};

constexpr const char* kDrawn[] = {"added_watcher_to_rtsp", "cpu_to_floor",      "p50_to_floor",
                                  "p99_to_floor",          "wake_ups_to_floor", "pss_mb"};

// Lengths in pixels of a drawing that is not scaled.
constexpr int kPanelWidth = 440, kColumns = 2, kMargin = 16;
constexpr int kTitleHeight = 34, kRowHeight = 22, kBarHeight = 14;
constexpr int kLabelWidth = 92, kBarWidth = 260; // the value stands behind the bar

constexpr char kStyle[] = "<style>\n"
                          "text { font: 12px sans-serif; fill: #24292f }\n"
                          ".title { font-weight: bold }\n"
                          ".met { fill: #5b8db8 }\n"
                          ".missed { fill: #c98a4b }\n"
                          ".axis { stroke: #8c959f }\n"
                          ".goal { stroke: #24292f; stroke-width: 2 }\n"
                          "@media (prefers-color-scheme: dark) {\n"
                          "  text { fill: #d0d7de }\n"
                          "  .goal { stroke: #d0d7de }\n"
                          "}\n"
                          "</style>\n";

[[gnu::format(printf, 2, 3)]] void Append(std::string& to, const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    to += text;
}

double NumberOf(const cJSON* object, const char* name)
{
    const double number = cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return number == number ? number : 0; // NaN when it is missing
}

std::string TextOf(const cJSON* object, const char* name)
{
    const char* const text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return text != nullptr ? text : "";
}

std::string LabelOf(const cJSON* judged)
{
    std::string label;
    Append(label, "%.0f Mbit/s", NumberOf(judged, "mbit_per_second"));
    if (NumberOf(judged, "watchers") > 0)
        Append(label, " × %.0f", NumberOf(judged, "watchers"));
    return label;
}

std::vector<Panel> PanelsOf(const cJSON* figures)
{
    std::vector<Panel> panels;
    const cJSON* judged;
    cJSON_ArrayForEach(judged, cJSON_GetObjectItemCaseSensitive(figures, "judgements"))
    {
        const std::string figure = TextOf(judged, "figure");
        if (std::find(std::begin(kDrawn), std::end(kDrawn), figure) == std::end(kDrawn))
            continue;
        if (panels.empty() || panels.back().figure != figure)
            panels.push_back({figure, TextOf(judged, "title"), {}});
        panels.back().bars.push_back({LabelOf(judged), NumberOf(judged, "value"), NumberOf(judged, "goal")});
    }
    return panels;
}

int HeightOf(const Panel& panel)
{
    return kTitleHeight + kRowHeight * static_cast<int>(panel.bars.size()) + kMargin;
}

void DrawBar(std::string& svg, const Bar& bar, double scale, int y)
{
    const double length = bar.value * scale;
    const double goal = kLabelWidth + bar.goal * scale;
    Append(svg, "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%s</text>\n", kLabelWidth - 8, y + 12,
           bar.label.c_str());
    Append(svg, "<rect class=\"%s\" x=\"%d\" y=\"%d\" width=\"%.1f\" height=\"%d\"/>\n",
           bar.value <= bar.goal ? "met" : "missed", kLabelWidth, y, length, kBarHeight);
    Append(svg, "<line class=\"goal\" x1=\"%.1f\" y1=\"%d\" x2=\"%.1f\" y2=\"%d\"/>\n", goal, y - 3, goal,
           y + kBarHeight + 3);
    Append(svg, "<text x=\"%.1f\" y=\"%d\">%.2f</text>\n", std::max(kLabelWidth + length, goal) + 6, y + 12,
           bar.value);
}

void DrawPanel(std::string& svg, const Panel& panel, int x, int y)
{
    double longest = 0;
    for (const Bar& bar : panel.bars)
        longest = std::max({longest, bar.value, bar.goal});
    Append(svg, "<g transform=\"translate(%d %d)\">\n", x, y);
    Append(svg, "<text class=\"title\" x=\"%d\" y=\"18\">%s</text>\n", kLabelWidth, panel.title.c_str());
    int row = kTitleHeight;
    for (const Bar& bar : panel.bars) {
        DrawBar(svg, bar, kBarWidth / longest, row);
        row += kRowHeight;
    }
    Append(svg, "<line class=\"axis\" x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\"/>\n</g>\n", kLabelWidth,
           kTitleHeight - 5, kLabelWidth, row);
}

// Panels go line by line; a line is as high as its highest panel.
std::string Draw(const std::vector<Panel>& panels)
{
    std::string body;
    int y = kMargin;
    for (size_t first = 0; first < panels.size(); first += kColumns) {
        int height = 0;
        for (size_t column = 0; column < kColumns && first + column < panels.size(); ++column) {
            DrawPanel(body, panels[first + column], kMargin + kPanelWidth * static_cast<int>(column), y);
            height = std::max(height, HeightOf(panels[first + column]));
        }
        y += height;
    }
    Append(body,
           "<text x=\"%d\" y=\"%d\">Shorter is better; the mark is the goal. Rate of the main stream × "
           "watchers; "
           "orange misses its goal.</text>\n",
           kMargin, y + 8);
    std::string svg;
    Append(svg, "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\">\n",
           2 * kMargin + kPanelWidth * kColumns, y + 24);
    return svg + kStyle + body + "</svg>\n";
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        fputs("usage: velmora-figures-svg FIGURES.json DRAWING.svg\n", stderr);
        return 2;
    }
    std::ifstream file(argv[1]);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    cJSON* const figures = cJSON_Parse(text.c_str());
    const std::vector<Panel> panels = PanelsOf(figures);
    cJSON_Delete(figures);
    if (panels.empty()) {
        fprintf(stderr, "velmora-figures-svg: %s holds no judged figures\n", argv[1]);
        return 1;
    }
    std::ofstream drawing(argv[2]);
    drawing << Draw(panels);
    return drawing.flush() ? 0 : 1;
}
