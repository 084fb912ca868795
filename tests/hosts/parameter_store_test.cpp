#include "hosts/parameter_store.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/table.h"
#include "tests/temporary_directory.h"

namespace {

using Block = std::vector<uint8_t>;

struct Camera {
    explicit Camera(const std::string& stateFile = "") : store(block.data(), stateFile) {}
    Block block = Block(kSysConfigBytes);
    ParameterStore store;

    int32_t Apply(uint32_t field, const Block& value) { return store.Apply(field, value); }
};

TEST(ParameterStore, AppliesEachFieldAtItsPlaceAndNothingElse)
{
    for (const TableRow& row : ReadTable(VELMORA_HOSTS_DATA "/places.tsv", 4)) {
        SCOPED_TRACE(row[0]);
        const struct {
            uint32_t field;
            size_t valueBytes, offset, blockBytes;
        } place = {static_cast<uint32_t>(stoul(row[0])), stoul(row[1]), stoul(row[2]), stoul(row[3])};
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
        for (const TableRow& row : ReadTable(VELMORA_HOSTS_DATA "/ptz_actions.tsv", 4)) {
            const auto action = static_cast<uint8_t>(stoi(row[1])),
                       value = static_cast<uint8_t>(stoi(row[2]));
            EXPECT_EQ(camera.Apply(4334, Ptz(action, value)), stoi(row[3])) << row[0];
        }
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

TEST(ParameterStore, SurvivesAnyStateFile)
{
    for (const TableRow& row : ReadTable(VELMORA_HOSTS_DATA "/state_files.tsv", 2)) {
        SCOPED_TRACE(row[0]);
        const TemporaryDirectory directory;
        const std::string path = directory.File("state.json");
        std::ofstream(path) << (row[0] == "-" ? "" : row[0]);
        Camera camera(path);
        EXPECT_TRUE(camera.block == Camera().block);
        EXPECT_EQ(std::filesystem::exists(path + ".corrupt"), row[1] == "set aside");
        EXPECT_EQ(camera.Apply(4101, {0x90, 0x1F}), 0);
        EXPECT_EQ(Camera(path).block[1108], 0x90) << "later changes are kept";
    }
}

} // namespace
