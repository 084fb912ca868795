#include "hosts/parameter_store.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/hosts/temporary_directory.h"

namespace {

using Block = std::vector<uint8_t>;

struct Camera {
    explicit Camera(const std::string& stateFile = "") : store(block.data(), stateFile) {}
    Block block = Block(kSysConfigBytes);
    ParameterStore store;

    int32_t Apply(uint32_t field, const Block& value) { return store.Apply(field, value); }
};

// Field, bytes of its value, and the place in the block with its width.
const struct PlaceCase {
    uint32_t field;
    size_t valueBytes, offset, blockBytes;
} kPlaces[] = {
    {4098, 4, 1100, 4}, {4193, 4, 1369, 1}, {4194, 4, 1370, 1}, {4195, 4, 1371, 1}, {4101, 2, 1108, 2},
    {4102, 2, 1110, 2}, {4103, 2, 1198, 2}, {4104, 2, 1196, 2}, {4107, 1, 1208, 1}, {4108, 2, 1210, 2},
    {4109, 1, 6197, 1}, {4111, 1, 1300, 1}, {4112, 1, 1301, 1}, {4113, 1, 1302, 1}, {4114, 1, 1303, 1},
    {4116, 1, 1305, 1}, {4118, 1, 1307, 1}, {4119, 1, 1308, 1}, {4120, 1, 1309, 1}, {4121, 1, 1310, 1},
    {4122, 1, 1311, 1}, {4123, 1, 1312, 1}, {4124, 1, 1313, 1}, {4131, 1, 1320, 1}, {4132, 1, 1322, 1},
    {4133, 1, 1323, 1}, {4134, 1, 1324, 1}, {4135, 1, 1325, 1}, {4136, 1, 1326, 1}, {4137, 1, 1327, 1},
    {4139, 1, 1329, 1}, {4141, 1, 1331, 1}, {4142, 1, 1332, 1}, {4143, 1, 1403, 1}, {4144, 1, 1382, 1},
    {4385, 1, 1401, 1}, {4147, 4, 1335, 1}, {4148, 4, 1336, 1}, {4149, 4, 1337, 1}, {4151, 4, 1340, 4},
    {4152, 4, 1344, 4}, {4153, 4, 1348, 4}, {4154, 4, 1352, 4}, {4155, 4, 1356, 4}, {4156, 4, 1360, 4},
    {4157, 4, 1364, 1}, {4158, 4, 1365, 1}, {4159, 4, 1366, 1}, {4160, 4, 3472, 2}, {4161, 4, 3474, 2},
    {4162, 4, 3630, 2}, {4163, 4, 3632, 2}, {4164, 4, 3788, 2}, {4165, 4, 3790, 2}, {4172, 4, 3436, 4},
    {4173, 4, 3448, 4}, {4174, 4, 3460, 4}, {4212, 1, 2104, 1}, {4214, 1, 2106, 1}, {4217, 128, 2116, 128},
    {4218, 1, 7075, 1}, {4253, 1, 2440, 1}, {4254, 1, 2441, 1}, {4258, 1, 2448, 1}, {4259, 1, 2449, 1},
    {4260, 1, 2450, 1}, {4261, 1, 2451, 1}, {4300, 1, 1158, 1}, {4303, 1, 1170, 1}, {4304, 4, 1212, 4},
    {4305, 4, 1216, 4}, {4387, 1, 1202, 1}, {4388, 2, 1200, 2}, {4389, 1, 1206, 1}, {4390, 2, 1204, 2},
    {4391, 1, 1168, 1}, {4399, 1, 1169, 1}, {4402, 1, 1159, 1},
};

TEST(ParameterStore, AppliesEachFieldAtItsPlaceAndNothingElse)
{
    for (const PlaceCase& place : kPlaces) {
        SCOPED_TRACE(place.field);
        Camera camera;
        Block value(place.valueBytes, 0);
        for (size_t i = 0; i < place.blockBytes; ++i)
            value[i] = static_cast<uint8_t>(0x29 + i);
        Block expected = camera.block;
        memcpy(expected.data() + place.offset, value.data(), place.blockBytes);
        EXPECT_EQ(camera.Apply(place.field, value), 0);
        for (const size_t wrong : {place.valueBytes - 1, place.valueBytes + 1})
            EXPECT_EQ(camera.Apply(place.field, Block(wrong, 0x11)), -1) << wrong << " bytes";
        if (place.blockBytes < place.valueBytes) {
            value[place.blockBytes] = 1;
            EXPECT_EQ(camera.Apply(place.field, value), -1) << "larger than the block can hold";
        }
        EXPECT_TRUE(camera.block == expected);
    }
}

Block TourRecord(uint8_t channel, uint8_t tour, size_t point)
{
    // Enable, preset, step, dwell time; 0x77 is the byte that is only passed on.
    const uint8_t values[] = {0x77, 0, 1, 200, 50, 0, 5};
    Block record(980, 0);
    record[0] = channel;
    record[1] = tour;
    memcpy(record.data() + 68 + 28 * point + 2, values, sizeof values);
    return record;
}

TEST(ParameterStore, SpreadsATourOverItsPoints)
{
    const uint8_t entry[] = {200, 0, 0, 0, 5, 50, 1, 0x77};
    Camera camera;
    Block expected = camera.block;
    for (const auto& [channel, tour, point] : {std::array<uint8_t, 3>{0, 0, 0}, {0, 3, 15}, {1, 31, 15}}) {
        memcpy(expected.data() + 68708 + ((32 * channel + tour) * 16 + point) * 8, entry, sizeof entry);
        EXPECT_EQ(camera.Apply(4335, TourRecord(channel, tour, point)), 0);
    }
    for (const Block& refused : {TourRecord(2, 0, 0), TourRecord(0, 32, 0), Block(979, 0)})
        EXPECT_EQ(camera.Apply(4335, refused), -1);
    EXPECT_TRUE(camera.block == expected);
}

TEST(ParameterStore, FindsItsSettingsAgainAfterARestart)
{
    const TemporaryDirectory directory;
    const std::string file = directory.File("state.json");
    Camera camera(file);
    Block account(68, 0);
    memcpy(account.data(), "eve", 3);
    const std::pair<uint32_t, Block> changes[] = {
        {4101, {0x90, 0x1F}},
        {4098, {192, 0, 2, 1}},
        {4193, {5, 0, 0, 0}},
        {4145, {'h', 'e', 'x', ':', 'a', '"', '\n'}},
        {4154, {0, 0, 0, 0x80}},
        {4217, Block(128, 0xA5)},
        {4335, TourRecord(1, 7, 2)},
        {8195, account},
        {4300, {0}}, // last, so that no later change saves it
    };
    for (const auto& [field, value] : changes)
        EXPECT_EQ(camera.Apply(field, value), 0) << field;
    Camera again(file);
    EXPECT_TRUE(again.block == camera.block);
    EXPECT_EQ(again.Apply(4395, {1}), 0);
    EXPECT_TRUE(again.block == Camera().block) << "factory default";
    EXPECT_TRUE(Camera(file).block == Camera().block);
}

Block Ptz(uint8_t action, uint8_t value = 0)
{
    return {1, action, 0, 0, value};
}

TEST(ParameterStore, KeepsPresetsAndToursAndForgetsThemAtAFactoryDefault)
{
    const TemporaryDirectory directory;
    const std::string path = directory.File("state.json");
    std::ofstream(path) << R"({"preset/4": "pan 999 tilt -3.5 zoom 2", "preset/256": "pan 1 tilt 1 zoom 1",
        "preset/5": "pan 1 tilt 1 zoom 0", "preset/6": "pan 1 tilt 1", "preset/": "pan 1 tilt 1 zoom 1",
        "preset/7": 7, "4339": 2})";
    const struct {
        const char* name;
        Block action;
        int32_t result;
    } kActions[] = {
        {"preset of an edited file", Ptz(18, 4), 0},
        {"presets that no file can have", Ptz(18, 5), -1},
        {"a text that ends too soon", Ptz(18, 6), -1},
        {"a number", Ptz(18, 7), -1},
        {"preset that was set", Ptz(18, 200), 0},
        {"preset that was cleared", Ptz(18, 201), -1},
        {"tour that was stored", Ptz(25, 3), 0},
        {"tour without points", Ptz(25, 2), -1},
        {"tour that does not exist", Ptz(25, 32), -1},
        {"another tour than runs", Ptz(26, 2), -1},
        {"tour that runs", Ptz(26, 3), 0},
        {"action that does not exist", Ptz(27), -1},
    };
    for (const bool restarted : {false, true}) {
        Camera camera(path);
        bool moved = false;
        camera.store.Watch({.onStream = {}, .onAddress = {}, .onHead = [&](bool has) { moved = has; }});
        for (const auto& [field, value] : {std::pair{4335, TourRecord(0, 3, 1)},
                                           {4334, Ptz(16, 200)},
                                           {4334, Ptz(16, 201)},
                                           {4334, Ptz(17, 201)}})
            EXPECT_EQ(restarted ? 0 : camera.Apply(static_cast<uint32_t>(field), value), 0);
        EXPECT_FALSE(moved);
        for (const auto& row : kActions)
            EXPECT_EQ(camera.Apply(4334, row.action), row.result) << row.name;
        EXPECT_TRUE(moved);
        if (!restarted)
            continue;
        EXPECT_EQ(camera.Apply(4395, {1}), 0);
        EXPECT_FALSE(moved);
        EXPECT_EQ(camera.store.motors().At(INT64_MAX / 2), HeadPosition());
        EXPECT_EQ(camera.Apply(4334, Ptz(18, 200)), -1) << "forgotten";
        EXPECT_EQ(Camera(path).Apply(4334, Ptz(18, 4)), -1) << "in the file too";
    }
}

TEST(ParameterStore, KeepsWhatWasSetOverWhatTheFileGivesAndTellsBoth)
{
    const TemporaryDirectory directory;
    const std::string state = directory.File("state.json");
    const StreamFacts file = {kCodecH265, 1920, 1080, 25, 4000000, 50, 0};
    const StreamFacts slower = {kCodecH265, 1920, 1080, 12, 4000000, 24, 0};
    const std::pair<uint32_t, Block> changes[] = {{4148, {2, 0, 0, 0}},    {4152, {10, 0, 0, 0}},
                                                  {4158, {1, 0, 0, 0}},    {4162, {0, 5, 0, 0}},
                                                  {4163, {0xD0, 2, 0, 0}}, {4096, {192, 0, 2, 7}}};
    const StreamFacts set = {kCodecH264, 1280, 720, 10, 4000000, 50, kVariableBitRate};
    for (const bool restarted : {false, true}) {
        SCOPED_TRACE(restarted);
        Camera camera(state);
        StreamFacts told;
        uint32_t ulTold = 0;
        camera.store.Watch(
            {.onStream = [&told](size_t stream,
                                 const StreamFacts& facts) { told = stream == 1 ? facts : told; },
             .onAddress =
                 [&ulTold](uint32_t field, uint32_t ulAddress) {
                     EXPECT_EQ(field, 4096U);
                     ulTold = ulAddress;
                 }});
        EXPECT_EQ(ulTold != 0, restarted) << "what was kept comes at once";
        camera.store.SetStream(1, file);
        EXPECT_EQ(told, restarted ? set : file);
        for (const auto& [field, value] : changes)
            EXPECT_EQ(camera.Apply(field, value), 0);
        EXPECT_EQ(told, set);
        EXPECT_EQ(memcmp(&ulTold, changes[5].second.data(), 4), 0);
        EXPECT_EQ(camera.block[1344], 10) << "frame rate in the block";
        camera.store.SetStream(1, slower);
        EXPECT_EQ(told.iFrameRate, 10) << "set";
        EXPECT_EQ(told.iIFrameInterval, 24) << "not set";
        if (restarted) {
            EXPECT_EQ(camera.Apply(4395, {1}), 0);
            EXPECT_EQ(told, slower) << "factory default";
        }
    }
}

TEST(ParameterStore, SurvivesAnyStateFile)
{
    const struct {
        const char* text;
        bool setAside;
    } kFiles[] = {
        {"", true},
        {"{\"4101\": 80", true},
        {"[1, 2]", true},
        {R"({"4101": -1, "4102": 65536, "4104": 1.5, "4300": 49, "4154": 1e300})", false},
        {R"({"4101": "80x", "4145": 7, "4217": "hex:00", "4101x": {}, "4103": null})", false},
        {R"({"4217": "hex:0g", "4096": "hex:1", "4335": "hex:", "users": "hex:00"})", false},
    };
    for (const auto& file : kFiles) {
        SCOPED_TRACE(file.text);
        const TemporaryDirectory directory;
        const std::string path = directory.File("state.json");
        std::ofstream(path) << file.text;
        Camera camera(path);
        EXPECT_TRUE(camera.block == Camera().block);
        EXPECT_EQ(std::filesystem::exists(path + ".corrupt"), file.setAside);
        EXPECT_EQ(camera.Apply(4101, {0x90, 0x1F}), 0);
        EXPECT_EQ(Camera(path).block[1108], 0x90) << "later changes are kept";
    }
}

} // namespace
