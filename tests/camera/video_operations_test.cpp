// Operations on streams, image, audio and motion through their wrappers: the exact messages of each
// setter and the exact records of each getter.
#include "camera/video_operations.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>

#include "camera/camera_commands.h"
#include "tests/camera/parameter_host.h"

namespace {

class VideoOperations : public testing::Test {
  protected:
    VideoOperations()
    {
        memset(Host().block, 0, kBlockBytes);
        Host().Take();
    }
    ~VideoOperations() override { std::remove("/var/cfg/CustomTools.cfg"); }
    static void ConfigureCombinations(const std::string& value)
    {
        std::ofstream("/var/cfg/CustomTools.cfg") << "[CustomToolCfg]\nCustomComboName=" << value << "\n";
    }
};

TEST_F(VideoOperations, StreamSettersSendOneWordEach)
{
    // The setter, its code for the main stream, what it sends for 6, and its status for a fourth stream.
    const std::tuple<int (*)(uint32_t, uint32_t), int, uint32_t, int> cases[] = {
        {CameraSetEncodingType, 67, 6, 0},     {CameraSetFrameRate, 74, 6, -1},
        {CameraSetBitRate, 71, 6144, -1},      {CameraSetBitRateCtl, 77, 6, -1},
        {CameraSetIFrameInterval, 109, 6, -1}, {CameraSetVideoQuality, 130, 6, 0},
    };
    Host().answersFirstByte = true; // setters ignore the result
    for (const auto& [set, firstCode, sentFor6, statusOfStream3] : cases) {
        std::vector<Request> expected;
        for (int stream = 0; stream < 3; stream++) {
            EXPECT_EQ(set(static_cast<uint32_t>(stream), 6), 0);
            expected.push_back(Sent(firstCode + stream, sentFor6));
        }
        EXPECT_EQ(set(3, 6), statusOfStream3);
        EXPECT_EQ(Host().Take(), expected) << firstCode;
    }
    Host().answersFirstByte = false;
}

TEST_F(VideoOperations, ResolutionNamesMatchByPrefix)
{
    // Name, stream, width and height; 0 where nothing is sent.
    const std::tuple<const char*, int, uint32_t, uint32_t> cases[] = {
        {"D1", 0, 720, 480},    {"HD1", 1, 352, 576},     {"BCIF", 2, 640, 320},    {"CIF", 0, 352, 288},
        {"QCIF", 0, 176, 144},  {"VGA", 0, 640, 480},     {"SVGA", 0, 800, 600},    {"QVGA", 0, 320, 240},
        {"SVCD", 0, 640, 360},  {"QQVGA", 0, 160, 128},   {"720N", 0, 720, 720},    {"720P", 1, 1280, 720},
        {"1_3M", 0, 1280, 960}, {"WUXGA", 0, 1536, 1536}, {"1080P", 2, 1920, 1080}, {"4M", 0, 2560, 1440},
        {"5M", 0, 2592, 1944},  {"D1x", 0, 720, 480},     {"8M", 0, 0, 0},          {"1080", 0, 0, 0},
        {"", 0, 0, 0},          {"d1", 0, 0, 0},          {"D1", 3, 0, 0},
    };
    for (const auto& [name, stream, width, height] : cases) {
        EXPECT_EQ(CameraSetResolution(static_cast<uint32_t>(stream), name), 0);
        std::vector<Request> expected;
        if (width != 0)
            expected = {Sent(80 + 2 * stream, width), Sent(81 + 2 * stream, height)};
        EXPECT_EQ(Host().Take(), expected) << name;
    }
    StreamResolutionName unended{}; // its name fills the field
    memset(unended.szName, 'x', sizeof unended.szName);
    const auto set = [&] { EXPECT_EQ(Common_SetResolution(&unended, nullptr), 0); };
    EXPECT_TRUE(
        ErrorOutputOf(set).ends_with(":  index = 0 Not Support Resolution = " + std::string(64, 'x') + "\n"));
}

TEST_F(VideoOperations, FrameRateCapDependsOnSizeStandardAndEncoding)
{
    const std::array<int, 6> cases[] = {
        {1920, 1080, -1, 0, 3, 30}, {2560, 1440, -1, 1, 3, 25}, {1920, 1080, -1, 2, 3, 30},
        {2560, 1920, -1, 0, 3, 20}, {2592, 1944, -1, 1, 3, 20}, {1944, 2592, -1, 0, 3, 20},
        {2592, 1944, -1, 0, 4, 15}, {1280, 720, 3, 0, 2, 15},   {1280, 720, 0, 0, 4, 30},
    };
    for (const auto& [width, height, mode, standard, encoding, cap] : cases) {
        Host().Set<uint8_t>({{1313, standard}, {1335, encoding}});
        EXPECT_EQ(GetMaxFrameRate(GetSysConfig(), width, height, mode), cap);
    }
}

TEST_F(VideoOperations, EncoderRecordHoldsTheBlocksWords)
{
    using Words = std::array<uint32_t, 57>;
    const auto get = [] {
        Words words;
        EXPECT_EQ(CameraGetVideoEncoderConfig(reinterpret_cast<VideoEncoderConfig*>(words.data())), 0);
        return words;
    };
    // The main stream is above its cap of 20, the second within it; the third's numbers make no sense.
    Host().Set<uint8_t>({{1335, 3}, {1364, 1}, {1369, 11}, {1372, 21}, {3628, 31}, {1402, 77}});
    Host().Set<uint8_t>({{1336, 2}, {1370, 12}, {1373, 22}, {3786, 32}});
    Host().Set<uint16_t>({{3472, 2592}, {3474, 1944}, {3630, 720}, {3632, 480}, {3788, 352}, {3790, 288}});
    Host().Set<int32_t>({{1340, 25}, {1352, 2097152}, {3436, 50}, {1348, -3}, {1360, -1025}});
    Host().Set<int32_t>({{1344, 20}, {1356, 1049599}, {3448, 40}});
    const Words expected = {
        1,     20,         20,  2592,       1944,       0,     99,   11, 3,  64,  12288, 2048,
        1,     20,         100, 20,         31,         21,    77,   1,  20, 20,  720,   480,
        0,     99,         12,  2,          64,         12288, 1024, 0,  20, 100, 40,    32,
        22,    77,         1,   20,         0xFFFFFFFD, 352,   288,  0,  99, 0,   0,     64,
        12288, 0xFFFFFFFF, 0,   0xFFFFFFFD, 0xFFFFFFF1, 0,     0,    0,  77,
    };
    EXPECT_EQ(get(), expected);
    Host().Set<uint8_t>({{1335, 4}});
    const Words mjpeg = get();
    for (const auto& [word, value] :
         {std::pair(size_t{1}, 15U), {2, 15U}, {10, 16384U}, {39, 15U}, {48, 16384U}})
        EXPECT_EQ(mjpeg[word], value);
    memset(Host().block, 0xFF, kBlockBytes);
    const Words hostile = get();
    EXPECT_EQ(std::vector(hostile.begin(), hostile.begin() + 19),
              (std::vector<uint32_t>{1, 30, ~0U, 65535, 65535, 0, 99, 255, 255, 64, 12288, 0, 255, ~0U, ~4U,
                                     ~0U, 255, 255, 255}));
}

// Index in the record, byte of the block and message code, in the order of sending.
constexpr std::array<uint16_t, 3> kImage[] = {
    {0, 1300, 186},  {2, 1301, 187},  {1, 1302, 188},  {3, 1303, 189},  {4, 1305, 256},
    {5, 1308, 198},  {6, 1309, 199},  {7, 1310, 200},  {8, 1307, 197},  {9, 1311, 194},
    {10, 1312, 195}, {11, 1320, 207}, {12, 1322, 208}, {13, 1323, 209}, {15, 1313, 64},
    {16, 1324, 210}, {17, 1325, 211}, {18, 1326, 212}, {19, 1327, 213}, {20, 1329, 215},
    {21, 1331, 217}, {22, 1332, 218}, {26, 1403, 219}, {23, 1401, 338}, {25, 1382, 220},
};

TEST_F(VideoOperations, ImageSettingsAreSingleBytesInOrder)
{
    ImageConfig image, read;
    memset(&read, 0xEE, sizeof read); // bytes 14 and 24 keep it
    memset(&image, 0xEE, sizeof image);
    std::vector<Request> expected;
    for (const auto& [index, place, code] : kImage) {
        Host().block[place] = image.ucValue[index] = static_cast<uint8_t>(100 + index);
        expected.push_back(SentByte(code, image.ucValue[index]));
    }
    EXPECT_EQ(CameraSetImageConfig(&image), 0);
    EXPECT_EQ(Host().Take(), expected);
    EXPECT_EQ(CameraGetImageConfig(&read), 0);
    EXPECT_EQ(std::to_array(read.ucValue), std::to_array(image.ucValue));
}

TEST_F(VideoOperations, AudioSettings)
{
    std::array<uint32_t, 7> words = {0x1234, 1, 2, 3, 4, 5, 16000};
    auto* const config = reinterpret_cast<AudioConfig*>(words.data());
    EXPECT_EQ(CameraSetAudioConfig(config), 0);
    EXPECT_EQ(Host().Take(), (std::vector{SentByte(168, 0x34), Sent(169, 16000)}));
    Host().Set<uint8_t>({{2440, 31}, {2441, 7}, {2449, 32}, {2448, 33}, {2450, 34}, {2451, 35}});
    EXPECT_EQ(CameraGetAudioConfig(config), 0);
    EXPECT_EQ(words, (std::array<uint32_t, 7>{7, 0, 64000, 8000, 0, 64000, 8000}));

    std::array<uint8_t, 6> bytes = {9, 1, 2, 3, 4, 5};
    auto* const property = reinterpret_cast<AudioProperty*>(bytes.data());
    EXPECT_EQ(CameraSetAudioProperty(property), 0);
    EXPECT_EQ(Host().Take(), (std::vector{SentByte(167, 1), SentByte(173, 2), SentByte(172, 3),
                                          SentByte(174, 4), SentByte(175, 5)}));
    EXPECT_EQ(CameraGetAudioProperty(property), 0);
    EXPECT_EQ(bytes, (std::array<uint8_t, 6>{9, 31, 32, 33, 34, 35}));
}

TEST_F(VideoOperations, MotionDetection)
{
    alignas(MotionDetectionEx) std::array<uint8_t, 552> bytes, expected{};
    auto* const record = reinterpret_cast<MotionDetectionEx*>(bytes.data());
    bytes.fill(0xEE);
    expected[4] = 33;
    for (const auto& [index, place] : {std::pair(size_t{1}, 2104), {3, 2106}, {536, 7075}})
        expected[index] = Host().block[place] = static_cast<uint8_t>(index);
    for (size_t i = 0; i < 128; i++)
        expected[8 + i] = Host().block[2116 + i] = static_cast<uint8_t>(i);
    EXPECT_EQ(CameraGetMotionDetectionExProperty(record), 0);
    EXPECT_EQ(bytes, expected);

    std::vector<Request> sent = {
        SentByte(177, 1), SentByte(179, 3), {182, {&bytes[8], &bytes[136]}}, SentByte(183, 24)};
    EXPECT_EQ(CameraSetMotionDetectionExProperty(record), 0);
    EXPECT_EQ(Host().Take(), sent);
    record->ucFlag = 1;
    sent.push_back(SentByte(233, 1));
    EXPECT_EQ(CameraSetMotionDetectionExProperty(record), 0);
    EXPECT_EQ(Host().Take(), sent);
}

TEST_F(VideoOperations, EncodingScopeTellsCapAndCombinations)
{
    Host().Set<uint16_t>({{3472, 2560}, {3474, 1440}});
    EncodingScope scope;
    memset(&scope, 0xEE, sizeof scope);
    EXPECT_EQ(CameraGetEncodingScope(&scope), 0);
    EXPECT_EQ(scope.ucMaxFrameRate, 25);
    EXPECT_EQ(scope.ucReserved2, 0xEE);
    EXPECT_EQ(strlen(scope.szCombination), 926U);
    EXPECT_TRUE(
        std::string_view(scope.szCombination).ends_with("MJPEG:1920x1080,MJPEG:720x480,MJPEG:352x288;"));
    ConfigureCombinations(std::string(3000, 'c'));
    EXPECT_EQ(CameraGetEncodingScope(&scope), 0);
    EXPECT_EQ(scope.szCombination, std::string(1023, 'c'));
}

TEST_F(VideoOperations, ResolutionsAvailablePerStream)
{
    ResolutionRecord list{};
    const char* const expected[] = {"2592x1944 2560x1920 2560x1440 1920x1080 1280x720 ", "720x480 ",
                                    "352x288 "};
    for (uint32_t stream = 0; stream < 3; stream++) {
        EXPECT_EQ(CameraGetResolutionsAvailable(stream, &list), 0);
        std::string sizes;
        for (int i = 0; i < list.iCount; i++)
            sizes += std::to_string(list.entry[i].iWidth) + "x" + std::to_string(list.entry[i].iHeight) + " ";
        EXPECT_EQ(sizes, expected[stream]);
    }
    EXPECT_EQ(CameraGetResolutionsAvailable(3, &list), -1);
    ConfigureCombinations("H264:1x1;");
    EXPECT_EQ(CameraGetResolutionsAvailable(0, &list), -1);
}

TEST_F(VideoOperations, MissingPointersAreRefused)
{
    AgreementEntry entry{};
    for (const int status :
         {CameraSetResolution(0, nullptr), CameraGetResolutionsAvailable(0, nullptr),
          CameraGetArgeementProperty(nullptr, &entry), CameraGetArgeementProperty(&entry, nullptr)})
        EXPECT_EQ(status, -1);
    for (const uint32_t command :
         {1U,  15U, 17U, 18U, 20U, 22U, 23U, 24U, 25U,  26U,  27U,  30U,  33U,  51U,  55U,
          56U, 57U, 59U, 61U, 63U, 80U, 81U, 89U, 100U, 101U, 107U, 108U, 127U, 132U, 133U})
        EXPECT_EQ(RunCameraCommand(command, nullptr, nullptr), -1) << command;
}

} // namespace
