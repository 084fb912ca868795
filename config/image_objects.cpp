#include "config/image_objects.h"

#include <cmath>

#include "camera/camera_commands.h"

namespace {

// Bytes of the image record
constexpr size_t kBrightness = 0;
constexpr size_t kSaturation = 1;
constexpr size_t kContrast = 2;
constexpr size_t kSharpness = 3;
constexpr size_t kWhiteBalance = 8;

// To the nearest integer, halves up.
int64_t Round(double value)
{
    return static_cast<int64_t>(std::floor(value + 0.5));
}

// The camera counts to 255, the protocol to 100.
JsonValue Percent(uint8_t byte)
{
    return Number(Round(byte * 100.0 / 255.0));
}

// A member that is no number leaves the byte as it is. More than 100 goes beyond 255 and keeps its low bits.
void SetByte(const cJSON* colour, const char* key, uint8_t* byte)
{
    if (cJSON_IsNumber(GetJsonMember(colour, key)) != 0)
        *byte = static_cast<uint8_t>(Round(GetJsonNumber(colour, key) * 255.0 / 100.0));
}

} // namespace

const char kCameraParam[] =
    R"({"AeSensitivity":5,"ApertureMode":"0x00000000","BLCMode":"0x00000000","DayNightColor":"0x00000000",)"
    R"("Day_nfLevel":3,"DncThr":30,"ElecLevel":50,"EsShutter":"0x00000002","IRCUTMode":0,"IrcutSwap":0,)"
    R"("Night_nfLevel":3,"PictureFlip":"0x00000000","PictureMirror":"0x00000000","RejectFlicker":0,)"
    R"("WhiteBalance":"0x00000000"},)"
    R"("ExposureParam":{"LeastTime":"0x00000100","Level":0,"MostTime":"0x00010000"},)"
    R"("GainParam":{"AutoGain":1,"Gain":50})";

const char kGuiSet[] =
    R"({"AlarmStateEnable":false,"CarInfo":false,"ChanStateBitRateEnable":false,"ChanStateLckEnable":false,)"
    R"("ChanStateMtdEnable":false,"ChanStateVlsEnable":false,"ChannelTitleEnable":false,"Deflick":false,)"
    R"("GPSInfo":false,"RecordStateEnable":false,"RemoteEnable":false,"TimeTitleEnable":false,)"
    R"("WindowAlpha":175})";

const char kVideoWidget[] = "[]";

void BuildVideoColor(ReplyText* text)
{
    ImageConfig image{};
    (void)CameraGetImageConfig(&image);
    const uint8_t* const byte = image.ucValue;
    for (const char* const before : {"[", ","})
        Add(text,
            R"(@{"Enable":1,"TimeSection":"1 00:00:00-24:00:00","VideoColorParam":{"Acutance":3848,)"
            R"("Brightness":@,"Contrast":@,"Gain":0,"Hue":@,"Saturation":@,"Whitebalance":@}})",
            Plain(before), Percent(byte[kBrightness]), Percent(byte[kContrast]), Percent(byte[kSharpness]),
            Percent(byte[kSaturation]), Number(byte[kWhiteBalance]));
    Add(text, "]");
}

SetResult ApplyVideoColor(const cJSON*, const cJSON* object)
{
    ImageConfig image{};
    (void)CameraGetImageConfig(&image);
    const cJSON* const section = cJSON_IsArray(object) != 0 ? cJSON_GetArrayItem(object, 0) : nullptr;
    const cJSON* const colour = GetJsonMember(section, "VideoColorParam");
    if (colour == nullptr)
        return kReply;
    SetByte(colour, "Brightness", &image.ucValue[kBrightness]);
    SetByte(colour, "Contrast", &image.ucValue[kContrast]);
    SetByte(colour, "Saturation", &image.ucValue[kSaturation]);
    (void)CameraSetImageConfig(&image);
    return kReply;
}
