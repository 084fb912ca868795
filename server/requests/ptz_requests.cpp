#include "server/requests/ptz_requests.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "camera/parameter_block_layout.h"
#include "camera/ptz_commands.h"
#include "common/log.h"

namespace {

constexpr char kHandler[] = "ProcessOPPTZControlReq";
constexpr uint32_t kChannel = 1;
constexpr int kNone = -1; // a number that the request does not carry

// Action codes that the release form uses; the others stand in the table below.
constexpr uint32_t kStop = 0;
constexpr uint32_t kFocusStop = 13;
constexpr uint32_t kZoomStop = 24;
constexpr uint32_t kStartTour = 25;
constexpr uint32_t kStopTour = 26;

struct PtzRequest {
    std::string_view command;
    int preset = kNone; // 1 and up; kNone is the release form
    int step = kNone;
    int tour = kNone; // 1 and up
};

// What a command does with its numbers.
enum class Does : uint8_t {
    kZoom,    // the action with speed 5
    kPlain,   // the action with value 0
    kMove,    // the speed step first, then the action with it
    kPreset,  // the action with the preset's index
    kNothing, // known, but this camera has no such thing
    kAddTour,
    kDeleteTour,
};
using enum Does;

struct PtzCommand {
    std::string_view name;
    Does does;
    uint32_t ulAction = kStop;
};

constexpr PtzCommand kCommands[] = {
    {"ZoomTile", kZoom, 9},
    {"ZoomWide", kZoom, 10},
    {"FocusFar", kPlain, 11},
    {"FocusNear", kPlain, 12},
    {"IrisSmall", kPlain, 15},
    {"IrisLarge", kPlain, 14},
    {"DirectionLeft", kMove, 1},
    {"DirectionRight", kMove, 2},
    {"DirectionUp", kMove, 3},
    {"DirectionDown", kMove, 4},
    {"DirectionLeftUp", kMove, 5},
    {"DirectionLeftDown", kMove, 6},
    {"DirectionRightUp", kMove, 7},
    {"DirectionRightDown", kMove, 8},
    {"Menu", kPlain, 19},
    {"SetPreset", kPreset, 16},
    {"ClearPreset", kPreset, 17},
    {"GotoPreset", kPreset, 18},
    {"AutoPanOn", kNothing},
    {"AutoPanOff", kNothing},
    {"AutoScanOn", kNothing},
    {"AutoScanOff", kNothing},
    {"Flip", kNothing},
    {"SetLimitLeft", kNothing},
    {"SetLimitRight", kNothing},
    {"Pattern", kNothing},
    {"AddTour", kAddTour},
    {"DeleteTour", kDeleteTour},
};

constexpr uint32_t kZoomSpeed = 5;
constexpr int kMostTourPoints = 5; // that a recorder may add
constexpr uint32_t kTourDwellSeconds = 5;

// The protocol counts presets and tours from 1, the camera from 0. Wraps where a request is absurd.
uint32_t IndexOf(int number)
{
    return static_cast<uint32_t>(number) - 1;
}

uint8_t LowByte(int number)
{
    return static_cast<uint8_t>(static_cast<uint32_t>(number));
}

void SendAction(uint32_t action, uint32_t value)
{
    (void)CameraControlPtz({.ulChannel = kChannel, .ulAction = action, .ulValue = value, .szName = {}});
}

void SendSpeed(int step)
{
    PtzProperty property{};
    property.ucStep = LowByte(step);
    memcpy(property.ucRes, "onvif", sizeof "onvif");
    (void)CameraSetPTZProperty(&property);
}

// The recorder's button was let go.
void Release(const PtzRequest& request)
{
    const auto has = [&request](std::string_view part) {
        return request.command.find(part) != std::string_view::npos;
    };
    if (request.command == "StartTour")
        SendAction(kStartTour, IndexOf(request.tour));
    else if (request.command == "StopTour")
        SendAction(kStopTour, IndexOf(request.tour));
    else if (has("Zoom"))
        SendAction(kZoomStop, 0);
    else if (has("Focus"))
        SendAction(kFocusStop, 0);
    else
        SendAction(kStop, 0);
}

// Reads a tour that exists. The index is checked before it becomes a byte.
bool FetchTour(const PtzRequest& request, CruiseLine* line)
{
    if (IndexOf(request.tour) >= block::kTourCount)
        return false;
    CruiseLine selector{};
    selector.ucIndex = static_cast<uint8_t>(IndexOf(request.tour));
    selector.ucPointFlag = static_cast<uint8_t>(IndexOf(request.preset));
    return CameraGetCruiseLineProperty(&selector, line) == kCameraOk;
}

void StoreTour(CruiseLine* line)
{
    line->ucEnable = 0;
    (void)CameraSetCruiseLineProperty(line);
}

void AddTourPoint(const PtzRequest& request)
{
    CruiseLine line{};
    if (!FetchTour(request, &line))
        return;
    LogTrace("%s,%d CruiseLinePropertyOut.TourFlag = %d\n", kHandler, __LINE__, line.ucTourFlag);
    if (line.ucTourFlag >= kMostTourPoints)
        return;
    CruisePoint& point = line.point[line.ucTourFlag];
    point.ucEnable = 1;
    point.ucPresetPointIndex = static_cast<uint8_t>(IndexOf(request.preset));
    point.ucStep = static_cast<uint8_t>(LowByte(request.step) * 10);
    point.ulDwelltime = kTourDwellSeconds;
    StoreTour(&line);
}

// Channel, tour and the byte that nobody knows stay with the place, not with the point.
void CopyPoint(const CruisePoint& from, CruisePoint* to)
{
    to->ucEnable = from.ucEnable;
    to->ucPresetPointIndex = from.ucPresetPointIndex;
    to->ucStep = from.ucStep;
    to->ulDwelltime = from.ulDwelltime;
}

// Takes the point out and closes the gap in a tour of `count` enabled points.
void RemovePoint(CruiseLine* line, size_t position, size_t count)
{
    size_t last = position;
    for (; last + 1 < count; ++last)
        CopyPoint(line->point[last + 1], &line->point[last]);
    CopyPoint(CruisePoint{}, &line->point[last]);
}

void DeleteTourPoint(const PtzRequest& request)
{
    CruiseLine line{};
    if (!FetchTour(request, &line))
        return;
    LogTrace("%s,%d CruiseLinePropertyOut.TourFlag  = %d\n", kHandler, __LINE__, line.ucTourFlag);
    LogTrace("%s,%d CruiseLinePropertyOut.PointFlag = %d\n", kHandler, __LINE__, line.ucPointFlag);
    const CruisePoint& found = line.point[line.ucPointFlag];
    // A preset that the tour does not visit is reported as its first point, which must stay.
    if (found.ucEnable != 1 || found.ucPresetPointIndex != IndexOf(request.preset))
        return;
    RemovePoint(&line, line.ucPointFlag, line.ucTourFlag);
    StoreTour(&line);
}

void Act(const PtzCommand& command, const PtzRequest& request)
{
    switch (command.does) {
    case kZoom:
        return SendAction(command.ulAction, kZoomSpeed);
    case kPlain:
        return SendAction(command.ulAction, 0);
    case kMove:
        SendSpeed(request.step);
        return SendAction(command.ulAction, static_cast<uint32_t>(request.step));
    case kPreset:
        return SendAction(command.ulAction, IndexOf(request.preset));
    case kNothing:
        return;
    case kAddTour:
        return AddTourPoint(request);
    case kDeleteTour:
        return DeleteTourPoint(request);
    }
}

void Steer(const PtzRequest& request)
{
    if (request.preset == kNone)
        return Release(request);
    const auto* const command =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [&request](const PtzCommand& row) { return row.name == request.command; });
    if (command != std::end(kCommands))
        return Act(*command, request);
    LogTrace("%s %d:...........Command = %s\n", kHandler, __LINE__, request.command.data());
}

void ReadAndSteer(const cJSON* body)
{
    const char* const name = GetJsonString(body, "Name");
    LogTrace("%s %d:...........Name = %s\n", kHandler, __LINE__, TextForLog(name));
    const cJSON* const control = GetJsonMember(body, "OPPTZControl");
    const char* const command = GetJsonString(control, "Command");
    if (name == nullptr || strcmp(name, "OPPTZControl") != 0 || command == nullptr)
        return;
    PtzRequest request{.command = command};
    if (const cJSON* const parameter = GetJsonMember(control, "Parameter")) {
        request.preset = GetJsonNumber(parameter, "Preset");
        request.step = GetJsonNumber(parameter, "Step");
        request.tour = GetJsonNumber(parameter, "Tour");
        LogTrace("%s %d:...........Step = %d\n", kHandler, __LINE__, request.step);
    }
    LogTrace("%s %d:...........Command = %s\n", kHandler, __LINE__, command);
    Steer(request);
}

} // namespace

int ProcessOPPTZControlReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kPtzControlReply);
    if (const JsonPtr body = ParseBody(request, requestLen))
        ReadAndSteer(body.get());
    return WriteReply(header, R"("Name":"",)", reply, replyLen);
}
