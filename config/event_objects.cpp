#include "config/event_objects.h"

#include <algorithm>
#include <iterator>

#include "camera/camera_commands.h"
#include "config/network_text.h"

namespace {

constexpr int kWeekDays = 7;
constexpr int kPtzLinks = 32;

// All day, every day; five more sections are not used.
constexpr char kScheduleOfDay[] = R"(["1 00:00:00-24:00:00","0 00:00:00-24:00:00","0 00:00:00-24:00:00",)"
                                  R"("0 00:00:00-24:00:00","0 00:00:00-24:00:00","0 00:00:00-24:00:00"])";
constexpr char kMaskOfDay[] =
    R"(["0x00000007","0x00000000","0x00000000","0x00000000","0x00000000","0x00000000"])";

// The alarm input's masks are wider than those of motion.
constexpr char kMask[] = R"("0x00000000")";
constexpr char kWideMask[] = R"("0x00000000000000000000000000000000")";

// An array of so many equal elements.
void AddArray(ReplyText* text, const char* element, int times)
{
    Add(text, "[");
    AddRepeated(text, element, times);
    Add(text, "]");
}

// What happens on an event: nothing but the tip on a recorder's screen.
struct EventHandler {
    int ptzLinks;
    const char* mask;
    bool showsTip;
};

void AddEventHandler(ReplyText* text, const EventHandler& handler)
{
    const JsonValue mask = Plain(handler.mask);
    Add(text,
        R"({"AlarmInfo":"","AlarmOutEnable":false,"AlarmOutLatch":10,"AlarmOutMask":"0x00000000",)"
        R"("BeepEnable":false,"EventLatch":1,"FTPEnable":false,"LogEnable":false,"MailEnable":false,)"
        R"("MatrixEnable":false,"MatrixMask":"0x00000000","MessageEnable":false,"MsgtoNetEnable":false,)"
        R"("MultimediaMsgEnable":false,"PtzEnable":false,"PtzLink":)");
    AddArray(text, R"(["None",0])", handler.ptzLinks);
    Add(text,
        R"(,"RecordEnable":false,"RecordLatch":10,"RecordMask":@,"ShortMsgEnable":false,"ShowInfo":false,)"
        R"("ShowInfoMask":@,"SnapEnable":false,"SnapShotMask":"0x00000000","TimeSection":)",
        mask, mask);
    AddArray(text, kScheduleOfDay, kWeekDays);
    Add(text, R"(,"TipEnable":@,"TourEnable":false,"TourMask":@,"VoiceEnable":false})",
        Flag(handler.showsTip), mask);
}

// "Mask" and "TimeSection" of a schedule, without the brace that ends the object.
void AddWeek(ReplyText* text)
{
    Add(text, R"({"Mask":)");
    AddArray(text, kMaskOfDay, kWeekDays);
    Add(text, R"(,"TimeSection":)");
    AddArray(text, kScheduleOfDay, kWeekDays);
}

// The camera's levels go from 0 to 10, the protocol's from 1 to 6.
int LevelOf(uint8_t sensitivity)
{
    return sensitivity == 0 ? 3 : sensitivity / 2 + 1;
}

uint8_t SensitivityOf(int64_t level)
{
    return static_cast<uint8_t>(level > 1 ? (level - 1) * 2 : level);
}

// Rows beyond those that the request carries stay as they are.
void ReadRegion(const cJSON* region, MotionDetectionEx* motion)
{
    if (cJSON_IsArray(region) == 0)
        return;
    const cJSON* row = region->child;
    for (uint32_t& block : motion->ulBlock) {
        if (row == nullptr)
            return;
        const char* const text = cJSON_GetStringValue(row);
        block = text != nullptr ? HexTextToNumber(text) : 0;
        row = row->next;
    }
}

void ReadSwitchAndLevel(const cJSON* object, MotionDetectionEx* motion)
{
    if (cJSON_IsBool(GetJsonMember(object, "Enable")) != 0)
        motion->ucEnable = static_cast<uint8_t>(GetJsonBool(object, "Enable"));
    if (cJSON_IsNumber(GetJsonMember(object, "Level")) != 0)
        motion->ucSensitivity = SensitivityOf(GetJsonNumber(object, "Level"));
    if (motion->ucSensitivity == 0)
        motion->ucEnable = 0; // a level of 0 switches detection off
    else if (GetJsonBool(object, "Enable") == 1)
        motion->ucFlag = 1;
}

} // namespace

const char kAlarmOut[] = R"([{"AlarmOutStatus":"OPEN","AlarmOutType":"AUTO"}])";

const char kStoragePosition[] = R"({"DVD":false,"SATA":false,"SD":false,"USB":false})";

void BuildMotionDetect(ReplyText* text)
{
    MotionDetectionEx motion{};
    (void)CameraGetMotionDetectionExProperty(&motion);
    Add(text, R"({"Enable":@,"EventHandler":)", Flag(motion.ucEnable == 1));
    AddEventHandler(text, {.ptzLinks = kPtzLinks, .mask = kMask, .showsTip = true});
    Add(text, R"(,"Level":@,"Region":)", Number(LevelOf(motion.ucSensitivity)));
    for (const uint32_t& block : motion.ulBlock)
        Add(text, "@@", Plain(&block == motion.ulBlock ? "[" : ","), Hex(block));
    Add(text, "]}");
}

SetResult ApplyMotionDetect(const cJSON*, const cJSON* object)
{
    MotionDetectionEx motion{};
    (void)CameraGetMotionDetectionExProperty(&motion);
    if (object == nullptr)
        return kReply;
    ReadRegion(GetJsonMember(object, "Region"), &motion);
    ReadSwitchAndLevel(object, &motion);
    (void)CameraSetMotionDetectionExProperty(&motion);
    return kReply;
}

void BuildLocalAlarm(ReplyText* text)
{
    Add(text, R"({"Enable":false,"EventHandler":)");
    AddEventHandler(text, {.ptzLinks = 0, .mask = kWideMask, .showsTip = false});
    Add(text, R"(,"SensorType":"NO"})");
}

void BuildRecord(ReplyText* text)
{
    AddWeek(text);
    Add(text, R"(,"RecordMode":"ConfigRecord","Redundancy":false,"PacketLength":60,"PreRecord":5})");
}

void BuildStorageSnapshot(ReplyText* text)
{
    AddWeek(text);
    Add(text, R"(,"SnapMode":"ClosedSnap","Redundancy":false,"PreSnap":1})");
}
