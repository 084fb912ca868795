#include "hosts/parameter_fields_table.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "camera/image_fields.h"
#include "camera/parameter_block_layout.h"

namespace {

constexpr uint32_t kAny = std::numeric_limits<uint32_t>::max();
constexpr auto kNumber = FieldKind::kNumber;
constexpr auto kText = FieldKind::kText;
constexpr auto kBytes = FieldKind::kBytes;
constexpr auto kEvent = FieldKind::kEvent;
constexpr auto kAccount = FieldKind::kAccount;

constexpr FieldPlace kPlaces[] = {
    {kFieldAddress, kBytes, 4, kNoBlockPlace, 0, 0, "address of eth0"},
    {kFieldNetmask, kBytes, 4, kNoBlockPlace, 0, 0, "netmask of eth0"},
    {kFieldGateway, kBytes, 4, block::kGateway, 4, 0, "gateway of eth0"},
    {4099, kBytes, 4, kNoBlockPlace, 0, 0, "DNS server of eth0"},
    {4101, kNumber, 2, block::kHttpPort, 2, kAny, "HTTP port"},
    {4102, kNumber, 2, block::kRtspPort, 2, kAny, "RTSP port"},
    {4103, kNumber, 2, block::kOnvifPort, 2, kAny, "ONVIF port"},
    {4104, kNumber, 2, block::kHttpsPort, 2, kAny, "HTTPS port"},
    {4105, kNumber, 4, kNoBlockPlace, 0, kAny, "DHCP on eth0"},
    {4107, kNumber, 1, block::kRtspEncryption, 1, kAny, "RTSP encryption"},
    {4108, kNumber, 2, block::kPalloPort, 2, kAny, "Pallo port"},
    {4109, kNumber, 1, block::kPalloEncryption, 1, kAny, "Pallo encryption"},
    {4145, kText, 100, block::kDeviceName, block::kIdentityBytes, 0, "host name"},
    {4147, kNumber, 4, block::kEncoding(0), 1, kAny, "encoding of the main stream"},
    {4148, kNumber, 4, block::kEncoding(1), 1, kAny, "encoding of the second stream"},
    {4149, kNumber, 4, block::kEncoding(2), 1, kAny, "encoding of the third stream"},
    {4151, kNumber, 4, block::kFrameRate(0), 4, kAny, "frame rate of the main stream"},
    {4152, kNumber, 4, block::kFrameRate(1), 4, kAny, "frame rate of the second stream"},
    {4153, kNumber, 4, block::kFrameRate(2), 4, kAny, "frame rate of the third stream"},
    {4154, kNumber, 4, block::kBitRate(0), 4, kAny, "bit rate of the main stream"},
    {4155, kNumber, 4, block::kBitRate(1), 4, kAny, "bit rate of the second stream"},
    {4156, kNumber, 4, block::kBitRate(2), 4, kAny, "bit rate of the third stream"},
    {4157, kNumber, 4, block::kBitRateControl(0), 1, kAny, "bit-rate control of the main stream"},
    {4158, kNumber, 4, block::kBitRateControl(1), 1, kAny, "bit-rate control of the second stream"},
    {4159, kNumber, 4, block::kBitRateControl(2), 1, kAny, "bit-rate control of the third stream"},
    {4160, kNumber, 4, block::kWidth(0), 2, kAny, "width of the main stream"},
    {4161, kNumber, 4, block::kHeight(0), 2, kAny, "height of the main stream"},
    {4162, kNumber, 4, block::kWidth(1), 2, kAny, "width of the second stream"},
    {4163, kNumber, 4, block::kHeight(1), 2, kAny, "height of the second stream"},
    {4164, kNumber, 4, block::kWidth(2), 2, kAny, "width of the third stream"},
    {4165, kNumber, 4, block::kHeight(2), 2, kAny, "height of the third stream"},
    {4172, kNumber, 4, block::kIFrameInterval(0), 4, kAny, "I-frame interval of the main stream"},
    {4173, kNumber, 4, block::kIFrameInterval(1), 4, kAny, "I-frame interval of the second stream"},
    {4174, kNumber, 4, block::kIFrameInterval(2), 4, kAny, "I-frame interval of the third stream"},
    {4193, kNumber, 4, block::kQuality(0), 1, kAny, "picture quality of the main stream"},
    {4194, kNumber, 4, block::kQuality(1), 1, kAny, "picture quality of the second stream"},
    {4195, kNumber, 4, block::kQuality(2), 1, kAny, "picture quality of the third stream"},
    {4212, kNumber, 1, block::kMotionEnable, 1, kAny, "motion detection"},
    {4214, kNumber, 1, block::kMotionSensitivity, 1, kAny, "motion sensitivity"},
    {4217, kBytes, 128, block::kMotionGrid, 128, 0, "motion grid"},
    {4218, kNumber, 1, block::kMotionRecStream, 1, kAny, "motion recording stream"},
    {4253, kNumber, 1, block::kAudioEnable, 1, kAny, "audio"},
    {4254, kNumber, 1, block::kAudioEncoding, 1, kAny, "audio encoding"},
    {4255, kNumber, 4, kNoBlockPlace, 0, kAny, "audio sample rate"},
    {4258, kNumber, 1, block::kAudioInputVolume, 1, kAny, "audio input volume"},
    {4259, kNumber, 1, block::kAudioOutputVolume, 1, kAny, "audio output volume"},
    {4260, kNumber, 1, block::kAudioInputMode, 1, kAny, "audio input mode"},
    {4261, kNumber, 1, block::kAudioOutputMode, 1, kAny, "audio output mode"},
    {4299, kText, 64, block::kNtpServer, block::kTimeZone - block::kNtpServer, 0, "NTP server"},
    {4300, kNumber, 1, block::kTimeZone, 1, 48, "time zone"},
    {4302, kEvent, 1, kNoBlockPlace, 0, 0, "the clock has been set"},
    {4303, kNumber, 1, block::kTimeLock, 1, kAny, "time-setting lock"},
    {4304, kNumber, 4, block::kNtpAutomatic, 4, kAny, "automatic NTP"},
    {4305, kNumber, 4, block::kNtpInterval, 4, kAny, "NTP interval"},
    {4313, kNumber, 1, kNoBlockPlace, 0, kAny, "motion area switch"},
    {kFieldPtzAction, kEvent, 5, kNoBlockPlace, 0, 0, "PTZ action"},
    {4335, FieldKind::kTour, 980, kNoBlockPlace, 0, 0, "tour"},
    {4336, kNumber, 1, kNoBlockPlace, 0, kAny, "PTZ focusing mode"},
    {4337, kNumber, 1, kNoBlockPlace, 0, kAny, "PTZ aperture mode"},
    {4338, kNumber, 1, kNoBlockPlace, 0, kAny, "PTZ aperture"},
    {kFieldPtzStep, kNumber, 1, kNoBlockPlace, 0, kAny, "PTZ step"},
    {4357, kNumber, 4, kNoBlockPlace, 0, kAny, "DHCP on wlan0"},
    {4358, kBytes, 4, kNoBlockPlace, 0, 0, "address of wlan0"},
    {4359, kBytes, 4, kNoBlockPlace, 0, 0, "netmask of wlan0"},
    {4360, kBytes, 4, kNoBlockPlace, 0, 0, "gateway of wlan0"},
    {4361, kBytes, 4, kNoBlockPlace, 0, 0, "DNS server of wlan0"},
    {4387, kNumber, 1, block::kOstraEnable, 1, kAny, "Ostra protocol"},
    {4388, kNumber, 2, block::kOstraPort, 2, kAny, "Ostra port"},
    {4389, kNumber, 1, block::kVelmoraEnable, 1, kAny, "Velmora protocol"},
    {4390, kNumber, 2, block::kVelmoraPort, 2, kAny, "Velmora port"},
    {4391, kNumber, 1, block::kOnvifEnable, 1, kAny, "ONVIF"},
    {kFieldFactoryDefault, kEvent, 1, kNoBlockPlace, 0, 0, "factory default"},
    {kFieldReboot, kEvent, 1, kNoBlockPlace, 0, 0, "reboot"},
    {4399, kNumber, 1, block::kOnvifAuth, 1, kAny, "ONVIF authentication"},
    {4402, kNumber, 1, block::kTimeMode, 1, kAny, "time mode"},
    {kFieldCreateUser, kAccount, block::kUserEntryBytes, kNoBlockPlace, 0, 0, "create user"},
    {kFieldDeleteUser, kAccount, block::kUserEntryBytes, kNoBlockPlace, 0, 0, "delete user"},
    {kFieldChangeUser, kAccount, block::kUserEntryBytes, kNoBlockPlace, 0, 0, "change user"},
};

// The rows above and one byte for each image setting.
std::vector<FieldPlace> AllPlaces()
{
    std::vector<FieldPlace> places(std::begin(kPlaces), std::end(kPlaces));
    for (const ImageField& image : kImageFields)
        places.push_back({image.ulField, kNumber, 1, image.usBlock, 1, kAny, "image setting"});
    return places;
}

} // namespace

std::span<const FieldPlace> FieldPlaces()
{
    static const std::vector<FieldPlace> places = AllPlaces();
    return places;
}

const FieldPlace* FindFieldPlace(uint32_t field)
{
    const std::span<const FieldPlace> places = FieldPlaces();
    const auto found = std::find_if(places.begin(), places.end(),
                                    [field](const FieldPlace& place) { return place.ulField == field; });
    return found == places.end() ? nullptr : &*found;
}

std::optional<size_t> StreamOfField(uint32_t field)
{
    constexpr uint32_t kFirstFields[] = {4147, 4151, 4154, 4157, 4172}; // one for each stream from here on
    for (const uint32_t first : kFirstFields)
        if (field >= first && field < first + kVideoStreams)
            return field - first;
    constexpr uint32_t kFirstSize = 4160; // width and height of each
    if (field >= kFirstSize && field < kFirstSize + 2 * kVideoStreams)
        return (field - kFirstSize) / 2;
    return std::nullopt;
}
