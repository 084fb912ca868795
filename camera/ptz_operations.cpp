#include "camera/ptz_operations.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "camera/camera_records.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/log.h"

namespace {

constexpr uint32_t kFieldAction = 4334;
constexpr uint32_t kFieldTour = 4335;
constexpr uint32_t kFieldFocusing = 4336;
constexpr uint32_t kFieldApertureMode = 4337;
constexpr uint32_t kFieldAperture = 4338;
constexpr uint32_t kFieldStep = 4339;
constexpr uint8_t kChannels = 2;
constexpr size_t kLoggedPoints = 5;

// What the log line of an action ends with.
enum class Shows : uint8_t { kNothing, kValue, kPreset, kResult };
using enum Shows;

// Where an action goes.
enum class Goes : uint8_t {
    kNowhere,   // only logged
    kAlone,     // to the parameter host
    kWithValue, // with the low byte of its value
};
using enum Goes;

struct PtzAction {
    const char* text; // of the log line
    Shows shows;
    Goes goes;
};

// By action code
constexpr PtzAction kActions[] = {
    {": Stop", kNothing, kAlone},
    {": Left speed", kValue, kAlone},
    {": Right speed", kValue, kAlone},
    {": Up speed", kValue, kAlone},
    {": Down speed", kValue, kAlone},
    {": Left Up speed", kValue, kAlone},
    {": Left Down speed", kValue, kAlone},
    {": Right Up speed", kValue, kAlone},
    {": Right Down speed", kValue, kAlone},
    {": Zoom wide speed", kValue, kAlone},
    {": Zoom tele speed", kValue, kAlone},
    {": Focus far", kValue, kAlone},
    {": Focus near speed", kValue, kAlone},
    {": Focus stop", kValue, kAlone},
    {": iris open", kNothing, kAlone},
    {": iris close", kNothing, kAlone},
    {": PresetSet No", kPreset, kWithValue},
    {": PresetClear", kValue, kWithValue},
    {": PresetGoto", kValue, kWithValue},
    {": HomeGoto", kNothing, kNowhere},
    {": HomeSet", kNothing, kNowhere},
    {":OnekeyFocus", kNothing, kAlone},
    {":Initlens", kNothing, kAlone},
    {":Correction ret =", kResult, kAlone},
    {": Zoom stop", kValue, kAlone},
    {": Start Tour", kValue, kWithValue},
    {": Stop Tour", kValue, kWithValue},
};
static_assert(std::size(kActions) == 27);

constexpr char kControlName[] = "Common_ControlPtz";

int32_t SendAction(const PtzControl& control, Goes goes)
{
    if (goes == kNowhere)
        return 0;
    const uint8_t message[5] = {static_cast<uint8_t>(control.ulChannel),
                                static_cast<uint8_t>(control.ulAction), 0, 0,
                                goes == kWithValue ? static_cast<uint8_t>(control.ulValue) : uint8_t{0}};
    return ControlSystemData(kFieldAction, message, sizeof message);
}

void LogAction(const PtzControl& control, const PtzAction& action, int32_t result)
{
    switch (action.shows) {
    case kNothing:
        LogTrace("%s %d%s\n", kControlName, __LINE__, action.text);
        return;
    case kValue:
        LogTrace("%s %d%s %d\n", kControlName, __LINE__, action.text, control.ulValue);
        return;
    case kPreset:
        LogTrace("%s %d%s %d Name %.*s\n", kControlName, __LINE__, action.text, control.ulValue,
                 static_cast<int>(sizeof control.szName), control.szName);
        return;
    case kResult:
        LogTrace("%s %d%s %d\n", kControlName, __LINE__, action.text, result);
        return;
    }
}

void SendByte(uint32_t field, uint8_t value)
{
    (void)ControlSystemData(field, &value, sizeof value);
}

bool IsTour(uint8_t channel, uint8_t tour)
{
    return channel < kChannels && tour < block::kTourCount;
}

void FillPoint(const SysInfo* config, size_t index, const CruiseLine& line, CruisePoint* point)
{
    const size_t tour = block::kTourCount * line.ucCh + line.ucIndex;
    const size_t entry = block::kTours + (tour * block::kTourPoints + index) * block::kTourEntryBytes;
    point->ucCh = line.ucCh;
    point->ucIndex = line.ucIndex;
    point->ucPresetPointIndex = static_cast<uint8_t>(BlockField<uint32_t>(config, entry));
    point->ulDwelltime = BlockField<uint8_t>(config, entry + 4);
    point->ucStep = BlockField<uint8_t>(config, entry + 5);
    point->ucEnable = BlockField<uint8_t>(config, entry + 6);
    point->ucReserved2 = BlockField<uint8_t>(config, entry + 7);
}

// Position of the first point with the preset, 0 when there is none.
uint8_t FindPreset(const CruiseLine& line, uint8_t preset)
{
    const auto* const found =
        std::find_if(std::begin(line.point), std::end(line.point),
                     [preset](const CruisePoint& point) { return point.ucPresetPointIndex == preset; });
    return found != std::end(line.point) ? static_cast<uint8_t>(found - line.point) : uint8_t{0};
}

void LogLine(const char* operation, const CruiseLine& line)
{
    LogTrace("%s %d: ucCh = %d ucIndex = %d ucEnable = %d\n", operation, __LINE__, line.ucCh, line.ucIndex,
             line.ucEnable);
    for (size_t i = 0; i < kLoggedPoints; ++i) {
        const CruisePoint& point = line.point[i];
        LogTrace("%s %d: point %zu ucEnable = %d ucPresetPointIndex = %d ucStep = %d ulDwelltime = %d\n",
                 operation, __LINE__, i, point.ucEnable, point.ucPresetPointIndex, point.ucStep,
                 point.ulDwelltime);
    }
}

} // namespace

int Common_ControlPtz(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    PtzControl control;
    memcpy(&control, input, sizeof control);
    LogTrace("%s %d: PtzControl.ucCh = %d\n", __func__, __LINE__, control.ulChannel & 0xFF);
    if (control.ulAction >= std::size(kActions))
        return kCameraOk;
    const PtzAction& action = kActions[control.ulAction];
    const int32_t result = SendAction(control, action.goes);
    LogAction(control, action, result);
    return action.shows == kResult && result == -1 ? kCameraFailed : kCameraOk;
}

int Common_SetPTZProperty(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    PtzProperty property;
    memcpy(&property, input, sizeof property);
    const std::string_view text(property.ucRes, strnlen(property.ucRes, sizeof property.ucRes));
    LogTrace("%s %d: pPTZProperty->ucFocusingModel = %d\n", __func__, __LINE__, property.ucFocusingModel);
    LogTrace("%s %d: pPTZProperty->ucApertureMode  = %d\n", __func__, __LINE__, property.ucApertureMode);
    LogTrace("%s %d: pPTZProperty->ucApertureVal   = %d\n", __func__, __LINE__, property.ucApertureVal);
    LogTrace("%s %d: pPTZProperty->ucRes           = %.*s\n", __func__, __LINE__,
             static_cast<int>(text.size()), text.data());
    LogTrace("%s %d: pPTZProperty->ucStep          = %d\n", __func__, __LINE__, property.ucStep);
    SendByte(kFieldStep, std::clamp<uint8_t>(property.ucStep, 1, 8));
    if (text.find("onvif") != std::string_view::npos)
        return kCameraOk;
    SendByte(kFieldFocusing, property.ucFocusingModel);
    SendByte(kFieldApertureMode, property.ucApertureMode);
    SendByte(kFieldAperture, property.ucApertureVal);
    return kCameraOk;
}

int Common_GetCruiseLineProperty(const void* input, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (input == nullptr || output == nullptr || config == nullptr)
        return kCameraFailed;
    const auto* const selector = static_cast<const CruiseLine*>(input);
    if (!IsTour(selector->ucCh, selector->ucIndex))
        return kCameraFailed;
    CruiseLine line{};
    line.ucCh = selector->ucCh;
    line.ucIndex = selector->ucIndex;
    line.ucTourFlag = selector->ucTourFlag;
    for (size_t i = 0; i < std::size(line.point); ++i) {
        FillPoint(config, i, line, &line.point[i]);
        if (line.point[i].ucEnable == 1)
            ++line.ucTourFlag;
    }
    line.ucPointFlag = FindPreset(line, selector->ucPointFlag);
    LogLine(__func__, line);
    memcpy(output, &line, sizeof line);
    return kCameraOk;
}

int Common_SetCruiseLineProperty(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto* const line = static_cast<const CruiseLine*>(input);
    if (!IsTour(line->ucCh, line->ucIndex))
        return kCameraFailed;
    LogLine(__func__, *line);
    (void)ControlSystemData(kFieldTour, line, sizeof *line);
    return kCameraOk;
}
