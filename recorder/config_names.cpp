#include "recorder/config_names.h"

#include <algorithm>

namespace {

using enum SetEffect;

constexpr ConfigName kNames[] = {
    {"AVEnc.Encode", "Simplify.Encode", nullptr, kNone, true},
    {"General.General", "General.General", "General.General", kDropped, false},
    {"General.Location", "General.Location", "General.Location", kDropped, false},
    {"NetWork.NetDHCP", "NetWork.NetDHCP", "NetWork.NetDHCP", kApplied, true},
    {"NetWork.NetDNS", "NetWork.NetDNS", nullptr, kNone, false},
    {"Alarm.LocalAlarm.[0]", "Alarm.LocalAlarm.[0]", nullptr, kNone, false},
    {"Alarm.AlarmOut", "Alarm.AlarmOut", nullptr, kNone, true},
    {"System.ExUserMap", "System.ExUserMap", "System.ExUserMap", kDropped, false},
    {"Record.[0]", "Record.[0]", nullptr, kNone, false},
    {"Storage.Snapshot.[0]", "Storage.Snapshot.[0]", nullptr, kNone, false},
    {"Storage.StoragePosition", "Storage.StoragePosition", nullptr, kNone, false},
    {"OEMcfg.Correspondent", "OEMcfg.Correspondent", "OEMcfg.Correspondent", kDropped, false},
    {"NetWork.NetCommon", "NetWork.NetCommon", "NetWork.NetCommon", kApplied, false},
    {"Simplify.Encode", "Simplify.Encode", "Simplify.Encode.[0]", kApplied, true},
    {"AVEnc.CombineEncode", "AVEnc.CombineEncode", nullptr, kNone, true},
    {"AVEnc.CombineEncodeParam", "AVEnc.CombineEncodeParam", nullptr, kNone, true},
    {"AVEnc.VideoColor.[0]", "AVEnc.VideoColor.[0]", "AVEnc.VideoColor.[0]", kApplied, true},
    {"Camera.Param.[0]", "Camera.Param.[0]", nullptr, kNone, false},
    {"Detect.MotionDetect.[0]", "Detect.MotionDetect.[0]", "Detect.MotionDetect.[0]", kApplied, false},
    {"fVideo.GUISet", "fVideo.GUISet", nullptr, kNone, false},
    {"AVEnc.VideoWidget", "AVEnc.VideoWidget", nullptr, kNone, true},
    {"General.AutoMaintain", "General.AutoMaintain", "General.AutoMaintain", kDropped, false},
    {"NetWork.OnlineUpgrade", "NetWork.OnlineUpgrade", nullptr, kNone, false},
    {"System.TimeZone", "System.TimeZone", "System.TimeZone", kApplied, false},
    {"NetWork.NetNTP", "NetWork.NetNTP", "NetWork.NetNTP", kDropped, false},
    {"NetWork.DigManagerShow", "NetWork.DigManagerShow", nullptr, kNone, false},
};

} // namespace

std::span<const ConfigName> ConfigNames()
{
    return kNames;
}

const ConfigName* FindConfigName(std::string_view name)
{
    const auto row = std::ranges::find_if(kNames, [name](const auto& r) {
        return name == r.name || (r.setName != nullptr && name == r.setName);
    });
    return row != std::end(kNames) ? row : nullptr;
}
