#include "recorder/report.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "recorder/json.h"

namespace {

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...)
{
    char text[256]; // the widest line stays below 200
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

double Seconds(const StreamStats& stats)
{
    return std::chrono::duration<double>(stats.lastPicture - stats.firstPicture).count();
}

// What came before the first picture came in no time that is counted.
double KilobitRate(const StreamStats& stats, double seconds)
{
    return seconds > 0 ? static_cast<double>(stats.bytes - stats.earlyBytes) * 8 / 1000 / seconds : 0;
}

// Three decimal places: more would be noise, and a person may read the JSON too.
double Rounded(double value)
{
    return std::round(value * 1000) / 1000;
}

void AddStream(cJSON* array, const StreamSummary& stream)
{
    cJSON* object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    cJSON_AddStringToObject(object, "stream", stream.stream.c_str());
    cJSON* files = cJSON_AddArrayToObject(object, "files");
    for (const std::string& file : stream.files)
        cJSON_AddItemToArray(files, cJSON_CreateString(file.c_str()));
    const auto addText = [object](const char* key, const char* text) {
        cJSON_AddStringToObject(object, key, text);
    };
    addText("codec", stream.format ? CodecText(stream.format->codec) : "");
    const VideoFormat format = stream.format.value_or(VideoFormat{});
    const StreamStats& stats = stream.stats;
    const struct {
        const char* key;
        double value;
    } numbers[] = {
        {"width", static_cast<double>(format.width)},
        {"height", static_cast<double>(format.height)},
        {"nominalFps", static_cast<double>(format.frameRate)},
        {"fps", Rounded(FrameRate(stats))},
        {"frames", static_cast<double>(stats.frames())},
        {"keyFrames", static_cast<double>(stats.keyFrames)},
        {"earlyFrames", static_cast<double>(stats.earlyFrames)},
        {"audioFrames", static_cast<double>(stats.audioFrames)},
        {"bytes", static_cast<double>(stats.bytes)},
        {"duration", Rounded(Seconds(stats))},
        {"timeToFirstPicture", static_cast<double>(stream.toFirstPicture.count()) / 1000},
        {"gaps", static_cast<double>(stream.counters.gaps)},
        {"lostMessages", static_cast<double>(stream.counters.lostMessages)},
        {"damaged", static_cast<double>(stream.counters.damaged)},
        {"dropped", static_cast<double>(stream.dropped)},
    };
    for (const auto& number : numbers)
        cJSON_AddNumberToObject(object, number.key, number.value);
}

std::string StreamText(const StreamSummary& stream)
{
    const StreamStats& stats = stream.stats;
    if (!stream.format || stats.frames() == 0)
        return stream.stream + ": no picture\n";
    std::string text = Format("%s: %s %dx%d, %.1f s, first picture after %.2f s\n", stream.stream.c_str(),
                              CodecText(stream.format->codec), stream.format->width, stream.format->height,
                              Seconds(stats), static_cast<double>(stream.toFirstPicture.count()) / 1000);
    text += Format("  %" PRIu64 " frames (%" PRIu64 " key), %" PRIu64 " audio, %" PRIu64 " bytes, "
                   "%.1f fps, %.0f kbit/s\n",
                   stats.frames(), stats.keyFrames, stats.audioFrames, stats.bytes, FrameRate(stats),
                   KilobitRate(stats, Seconds(stats)));
    text += Format("  %" PRIu64 " gaps, %" PRIu64 " damaged, %" PRIu64 " dropped\n", stream.counters.gaps,
                   stream.counters.damaged, stream.dropped);
    for (const std::string& file : stream.files)
        text += "  " + file + "\n";
    return text;
}

} // namespace

std::string ProgressLine(const RecordingOptions& options, const LiveView& view, TimePoint now)
{
    std::string line;
    for (size_t i = 0; i < options.streams.size(); i++) {
        const StreamStats& stats = view.stats(i);
        const double seconds =
            stats.frames() == 0 ? 0 : std::chrono::duration<double>(now - stats.firstPicture).count();
        line += Format("%s%s %.1f s %" PRIu64 " frames %.1f fps %.0f kbit/s %" PRIu64 " gaps",
                       line.empty() ? "" : " | ", options.streams[i].stream->option, seconds, stats.frames(),
                       FrameRate(stats), KilobitRate(stats, seconds), view.counters(i).gaps);
    }
    return line;
}

std::string SummaryText(const RecordingSummary& summary)
{
    std::string text;
    for (const StreamSummary& stream : summary.streams)
        text += StreamText(stream);
    return text;
}

std::string SummaryJson(const RecordingSummary& summary)
{
    const JsonPtr tree(cJSON_CreateObject());
    cJSON_AddNumberToObject(tree.get(), "exitCode", summary.code);
    cJSON_AddStringToObject(tree.get(), "failure", summary.failure.c_str());
    cJSON_AddStringToObject(tree.get(), "session", Format("0x%08x", summary.sessionId).c_str());
    cJSON_AddNumberToObject(tree.get(), "alarms", static_cast<double>(summary.alarms));
    cJSON_AddNumberToObject(tree.get(), "reconnects", static_cast<double>(summary.reconnects));
    cJSON* streams = cJSON_AddArrayToObject(tree.get(), "streams");
    for (const StreamSummary& stream : summary.streams)
        AddStream(streams, stream);
    return PrintJson(tree.get(), false) + "\n";
}
