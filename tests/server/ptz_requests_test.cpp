#include "server/requests/ptz_requests.h"

#include "camera/camera_commands.h"
#include "camera/ptz_commands.h"
#include "tests/camera/parameter_host.h"
#include "tests/exchange.h"

namespace {

constexpr int kAction = 290, kTour = 291, kFocusing = 292, kMode = 293, kAperture = 294, kStep = 295;

Request Action(uint8_t action, uint8_t value = 0, uint8_t channel = 1)
{
    return {kAction, {channel, action, 0, 0, value}};
}

// Sends the request and returns what it made the camera do.
std::vector<Request> Steer(const std::string& body)
{
    const TestConnection recorder(0x1F);
    Host().Take();
    const Answer answer = ExchangeOn(recorder.fd(), ProcessOPPTZControlReq, MakeRequest(1400, body));
    EXPECT_EQ(answer.header.usMessageId, 1401);
    EXPECT_EQ(answer.body, R"({"Name":"","Ret":100,"SessionID":"0x0000001f"})");
    return Host().Take();
}

std::string Body(const std::string& command, const std::string& numbers)
{
    return R"({"Name":"OPPTZControl","OPPTZControl":{"Command":")" + command + R"(","Parameter":{)" +
           numbers + "}}}";
}

TEST(Ptz, CommandsBecomeActions)
{
    const std::tuple<const char*, const char*, std::vector<Request>> cases[] = {
        {"DirectionUp", R"("Preset":0,"Step":5)", {SentByte(kStep, 5), Action(3)}},
        {"DirectionLeft", R"("Preset":0,"Step":0)", {SentByte(kStep, 1), Action(1)}},
        {"DirectionRight", R"("Preset":0,"Step":12)", {SentByte(kStep, 8), Action(2)}},
        {"DirectionDown", R"("Preset":0)", {SentByte(kStep, 8), Action(4)}},
        {"DirectionLeftUp", R"("Preset":0,"Step":1)", {SentByte(kStep, 1), Action(5)}},
        {"DirectionLeftDown", R"("Preset":0,"Step":2)", {SentByte(kStep, 2), Action(6)}},
        {"DirectionRightUp", R"("Preset":0,"Step":3)", {SentByte(kStep, 3), Action(7)}},
        {"DirectionRightDown", R"("Preset":0,"Step":4)", {SentByte(kStep, 4), Action(8)}},
        {"DirectionUp", R"("Preset":-1,"Step":5)", {Action(0)}},
        {"ZoomTile", R"("Preset":0)", {Action(9)}},
        {"ZoomWide", R"("Preset":0)", {Action(10)}},
        {"ZoomTile", R"("Preset":"0")", {Action(24)}},
        {"FocusFar", R"("Preset":0)", {Action(11)}},
        {"FocusNear", R"("Preset":0)", {Action(12)}},
        {"FocusNear", "", {Action(13)}},
        {"IrisSmall", R"("Preset":0)", {Action(15)}},
        {"IrisLarge", R"("Preset":0)", {Action(14)}},
        {"SetPreset", R"("Preset":3)", {Action(16, 2)}},
        {"ClearPreset", R"("Preset":3)", {Action(17, 2)}},
        {"GotoPreset", R"("Preset":1)", {Action(18, 0)}},
        {"StartTour", R"("Tour":1)", {Action(25, 0)}},
        {"StopTour", R"("Tour":3,"Preset":-1)", {Action(26, 2)}},
        {"StartTour", R"("Tour":1,"Preset":2)", {}},
        {"Menu", R"("Preset":0)", {}},
        {"Flip", R"("Preset":0)", {}},
        {"directionup", R"("Preset":0)", {}},
    };
    for (const auto& [command, numbers, sent] : cases)
        EXPECT_EQ(Steer(Body(command, numbers)), sent) << command << " " << numbers;
    EXPECT_EQ(Steer(R"({"Name":"OPPTZControl","OPPTZControl":{"Command":"Zoom"}})"),
              std::vector<Request>{Action(24)});
    for (const char* const body :
         {"", "[]", R"({"Name":"Other","OPPTZControl":{"Command":"ZoomTile"}})", R"({"Name":"OPPTZControl"})",
          R"({"Name":"OPPTZControl","OPPTZControl":{"Command":7}})",
          R"({"OPPTZControl":{"Command":"ZoomTile"}})"})
        EXPECT_EQ(Steer(body), std::vector<Request>{}) << body;
}

TEST(Ptz, EveryActionIsSentAsTheCameraTakesIt)
{
    for (uint32_t action = 0; action < 30; ++action) {
        Host().Take();
        Host().answersFirstByte = action != 23; // its answer is otherwise the length of the value
        const bool carriesValue = (action >= 16 && action <= 18) || action == 25 || action == 26;
        const bool isSent = action < 27 && action != 19 && action != 20;
        EXPECT_EQ(CameraControlPtz({0x102, action, 0x304, "name"}), 0);
        EXPECT_EQ(Host().Take(),
                  isSent ? std::vector<Request>{Action(static_cast<uint8_t>(action), carriesValue ? 4 : 0, 2)}
                         : std::vector<Request>{})
            << action;
    }
    Host().answersFirstByte = false;
    PtzProperty property{0, 9, {}, 21, 22, 23, "lens"};
    EXPECT_EQ(CameraSetPTZProperty(&property), 0);
    EXPECT_EQ(Host().Take(), (std::vector<Request>{SentByte(kStep, 8), SentByte(kFocusing, 23),
                                                   SentByte(kMode, 21), SentByte(kAperture, 22)}));
}

struct TourPoint {
    uint32_t preset;
    uint8_t dwell, step, enable, byte7;
};

constexpr uint32_t Entry(uint32_t channel, uint32_t tour, uint32_t point)
{
    return 68708 + ((32 * channel + tour) * 16 + point) * 8;
}

void StoreTour(const std::vector<TourPoint>& points)
{
    for (uint32_t i = 0; i < 16; ++i)
        Host().Set<TourPoint>({{Entry(0, 2, i), i < points.size() ? points[i] : TourPoint{}}});
}

// The points of the record that a request sent: enable, preset, step, dwell time.
std::vector<std::array<uint32_t, 4>> SentPoints(const std::vector<Request>& sent)
{
    if (sent.size() != 1 || sent[0].code != kTour || sent[0].value.size() != 980)
        return {};
    const std::vector<uint8_t>& line = sent[0].value;
    EXPECT_TRUE(line[0] == 0 && line[1] == 2 && line[2] == 0); // channel, tour, not enabled
    std::vector<std::array<uint32_t, 4>> points;
    for (size_t i = 0; i < 16; ++i) {
        const uint8_t* const point = &line[68 + 28 * i];
        if (point[4] != 0 || point[5] != 0 || point[6] != 0 || point[8] != 0)
            points.push_back({point[4], point[5], point[6], point[8]});
    }
    return points;
}

TEST(Ptz, ToursAreEditedPointByPoint)
{
    const TourPoint one{10, 5, 30, 1, 0}, two{11, 6, 40, 1, 0}, three{12, 7, 50, 1, 0};
    using Points = std::vector<std::array<uint32_t, 4>>;
    StoreTour({one, two});
    EXPECT_EQ(SentPoints(Steer(Body("AddTour", R"("Tour":3,"Preset":8,"Step":3)"))),
              (Points{{1, 10, 30, 5}, {1, 11, 40, 6}, {1, 7, 30, 5}}));
    StoreTour({one, two, three});
    EXPECT_EQ(SentPoints(Steer(Body("DeleteTour", R"("Tour":3,"Preset":11)"))),
              (Points{{1, 11, 40, 6}, {1, 12, 50, 7}}));
    EXPECT_EQ(SentPoints(Steer(Body("DeleteTour", R"("Tour":3,"Preset":13)"))),
              (Points{{1, 10, 30, 5}, {1, 11, 40, 6}}));
    for (const char* const preset : {"99", "1", "267", "0"}) // none of them a point of the tour
        EXPECT_EQ(Steer(Body("DeleteTour", std::string(R"("Tour":3,"Preset":)") + preset)),
                  std::vector<Request>{})
            << preset;
    StoreTour({one, two, three, one, two});
    EXPECT_EQ(Steer(Body("AddTour", R"("Tour":3,"Preset":8,"Step":3)")), std::vector<Request>{});
}

TEST(Ptz, AReadTourCountsItsPointsAndFindsAPreset)
{
    Host().Set<TourPoint>({{Entry(1, 31, 0), {300, 1, 2, 2, 9}}, {Entry(1, 31, 15), {7, 3, 4, 1, 8}}});
    CruiseLine selector{};
    selector.ucCh = 1;
    selector.ucIndex = 31;
    selector.ucTourFlag = 40;
    selector.ucPointFlag = 7;
    CruiseLine line{};
    ASSERT_EQ(CameraGetCruiseLineProperty(&selector, &line), 0);
    EXPECT_EQ(line.ucTourFlag, 41); // enabled is 1 alone
    EXPECT_EQ(line.ucPointFlag, 15);
    EXPECT_EQ(line.point[0].ucPresetPointIndex, 300 & 0xFF);
    EXPECT_EQ(line.point[15].ucReserved2, 8);
    EXPECT_TRUE(line.point[15].ucCh == 1 && line.point[15].ucIndex == 31);
    for (const auto& [channel, tour] : std::vector<std::pair<uint8_t, uint8_t>>{{0, 32}, {2, 0}}) {
        selector.ucCh = channel;
        selector.ucIndex = tour;
        EXPECT_EQ(CameraGetCruiseLineProperty(&selector, &line), -1);
        EXPECT_EQ(line.ucTourFlag, 41);
        EXPECT_EQ(CameraSetCruiseLineProperty(&selector), -1);
    }
}

} // namespace
