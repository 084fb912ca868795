#include "config/encode_objects.h"

#include "camera/camera_commands.h"
#include "common/log.h"
#include "config/resolution_names.h"

namespace {

constexpr char kHandler[] = "ProcessGetConfigReq";
constexpr int kVolume = 80;
constexpr int64_t kSmartGop = 10; // seconds
constexpr char kFullHd[] = "1080P";

// What is read from the camera for one answer.
struct Encoding {
    AudioProperty property;
    AudioConfig audio;
    VideoEncoderConfig video;
};

Encoding ReadEncoding()
{
    Encoding encoding{};
    (void)CameraGetAudioProperty(&encoding.property);
    (void)CameraGetAudioConfig(&encoding.audio);
    (void)CameraGetVideoEncoderConfig(&encoding.video);
    return encoding;
}

// The record's words are signed where the protocol shows them.
JsonValue Signed(uint32_t word)
{
    return Number(static_cast<int32_t>(word));
}

const char* NameOf(const StreamEncoderConfig& stream)
{
    return GetResolutionName(static_cast<int32_t>(stream.ulWidth), static_cast<int32_t>(stream.ulHeight));
}

// Members that are left out when the record holds a value without a name.
JsonValue BitRateControlMember(const StreamEncoderConfig& stream)
{
    return Plain(stream.ulBitRateControl == 0   ? R"("BitRateControl":"CBR",)"
                 : stream.ulBitRateControl == 1 ? R"("BitRateControl":"VBR",)"
                                                : "");
}

JsonValue CompressionMember(const StreamEncoderConfig& stream)
{
    return Plain(stream.ulEncoding == 2   ? R"("Compression":"H.264",)"
                 : stream.ulEncoding == 3 ? R"("Compression":"H.265",)"
                                          : "");
}

// Seconds between I-frames, at least `least`.
int64_t GopSeconds(const StreamEncoderConfig& stream, int64_t least)
{
    const auto interval = static_cast<int32_t>(stream.ulIFrameInterval);
    const auto frameRate = static_cast<int32_t>(stream.ulFrameRate);
    const int64_t seconds = frameRate != 0 ? int64_t{interval} / frameRate : 0;
    return seconds < 2 ? least : seconds;
}

// What "AVEnc.Encode" and "Simplify.Encode" say differently about a stream.
struct StreamDetails {
    int64_t gop;
    int64_t quality;
};

StreamDetails PlainDetails(const StreamEncoderConfig& stream, bool isMain)
{
    const char* const name = NameOf(stream);
    const bool isFullHd = name != nullptr && std::string_view(name) == kFullHd;
    return {.gop = GopSeconds(stream, 2), .quality = isMain && isFullHd ? 2 : 3};
}

StreamDetails SimplifiedDetails(const StreamEncoderConfig& stream)
{
    const bool hasQuality = stream.ulQuality >= 1 && stream.ulQuality <= 6;
    return {.gop = stream.ulSmartEncoding == 1 ? kSmartGop : GopSeconds(stream, 1),
            .quality = hasQuality ? stream.ulQuality : 3};
}

void AddAudio(const Encoding& encoding, ReplyText* text)
{
    const bool isOn = encoding.property.ucEnable == 1;
    const JsonValue zero = Number(0);
    Add(text, R"("Audio":{"BitRate":@,"MaxVolume":@,"SampleRate":@},"AudioEnable":@,)",
        isOn ? Signed(encoding.audio.ulBitRate) : zero, isOn ? Number(kVolume) : zero,
        isOn ? Signed(encoding.audio.ulSampleRate) : zero, Flag(isOn));
}

// "Video" up to the two members whose order depends on the stream.
void AddVideo(const StreamEncoderConfig& stream, const StreamDetails& details, ReplyText* text)
{
    Add(text, R"("Video":{"BitRate":@,@@"FPS":@,"GOP":@,)", Signed(stream.ulBitRateKbps),
        BitRateControlMember(stream), CompressionMember(stream), Signed(stream.ulFrameRate),
        Number(details.gop));
}

void AddExtraFormat(const Encoding& encoding, const StreamDetails& details, ReplyText* text)
{
    const StreamEncoderConfig& stream = encoding.video.stream[1];
    Add(text, R"("ExtraFormat":{)");
    AddAudio(encoding, text);
    AddVideo(stream, details, text);
    Add(text, R"("Quality":@,"Resolution":@},"VideoEnable":true})", Number(details.quality),
        Quoted(NameOf(stream)));
}

void AddMainFormat(const Encoding& encoding, const StreamDetails& details, ReplyText* text)
{
    const StreamEncoderConfig& stream = encoding.video.stream[0];
    Add(text, R"("MainFormat":{)");
    AddAudio(encoding, text);
    AddVideo(stream, details, text);
    Add(text, R"("Resolution":@,"Quality":@},"VideoEnable":true})", Quoted(NameOf(stream)),
        Number(details.quality));
}

void LogSizes(const Encoding& encoding)
{
    const StreamEncoderConfig* const stream = encoding.video.stream;
    LogTrace("%s %d Main iVideoWidth= %d iVideoHeight=%d\n", kHandler, __LINE__, stream[0].ulWidth,
             stream[0].ulHeight);
    LogTrace("%s %d Sub iVideoWidth= %d iVideoHeight=%d\n", kHandler, __LINE__, stream[1].ulWidth,
             stream[1].ulHeight);
}

void LogSubStream(const StreamEncoderConfig& stream)
{
    LogTrace("%s %d VideoConfig[1].iSmartEncEnable : %d\n", kHandler, __LINE__, stream.ulSmartEncoding);
    LogTrace("%s %d VideoConfig[1].iGovLength      : %d\n", kHandler, __LINE__, stream.ulIFrameInterval);
    LogTrace("%s %d VideoConfig[1].iFrameRate      : %d\n", kHandler, __LINE__, stream.ulFrameRate);
}

// Three equal entries that describe a stream which the camera does not combine with others.
void AddCombined(const StreamEncoderConfig& stream, ReplyText* text)
{
    for (const char* const before : {"[", ",", ","})
        Add(text,
            R"(@{"Audio":{"BitRate":0,"MaxVolume":0,"SampleRate":0},"AudioEnable":false,"Video":{"BitRate":@,)"
            R"("BitRateControl":"VBR","Compression":"H.264","FPS":@,"GOP":2,"Quality":6,"Resolution":@},)"
            R"("VideoEnable":false})",
            Plain(before), Number(static_cast<int32_t>(stream.ulBitRateKbps) / 1024),
            Signed(stream.ulFrameRate), Quoted(NameOf(stream)));
    Add(text, "]");
}

} // namespace

const char kCombineEncodeParam[] =
    R"([{"EncodeParm":{"TransMode":"MultiReplay"}},{"EncodeParm":{"TransMode":"MultiReplay"}}])";

void BuildAVEncEncode(ReplyText* text)
{
    const Encoding encoding = ReadEncoding();
    LogSizes(encoding);
    Add(text, "[{");
    AddExtraFormat(encoding, PlainDetails(encoding.video.stream[1], /* isMain= */ false), text);
    Add(text, ",");
    AddMainFormat(encoding, PlainDetails(encoding.video.stream[0], /* isMain= */ true), text);
    Add(text, "}]");
}

void BuildSimplifyEncode(ReplyText* text)
{
    const Encoding encoding = ReadEncoding();
    LogSizes(encoding);
    LogSubStream(encoding.video.stream[1]);
    Add(text, "[{");
    AddExtraFormat(encoding, SimplifiedDetails(encoding.video.stream[1]), text);
    Add(text, ",");
    LogTrace("%s %d main VideoConfig[0].iBitrate : %d\n", kHandler, __LINE__,
             encoding.video.stream[0].ulBitRateKbps);
    AddMainFormat(encoding, SimplifiedDetails(encoding.video.stream[0]), text);
    Add(text, "}]");
}

// The two streams stand under each other's names.
void BuildCombineEncode(ReplyText* text)
{
    VideoEncoderConfig video{};
    (void)CameraGetVideoEncoderConfig(&video);
    Add(text, R"([{"ExtraFormat":)");
    AddCombined(video.stream[0], text);
    Add(text, R"(,"MainFormat":)");
    AddCombined(video.stream[1], text);
    Add(text, "}]");
}
