// Operations on streams, image, audio and motion through their wrappers: the exact messages of each
// setter and the exact records of each getter.
#include "camera/video_operations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "camera/camera_commands.h"
#include "tests/camera/parameter_host.h"

namespace {

class VideoOperations : public testing::Test {
  protected:
    void SetUp() override
    {
        Host().NewBlock();
        Host().Take();
    }
    void TearDown() override { std::remove("/var/cfg/CustomTools.cfg"); }
    static void ConfigureTools(const std::string& line)
    {
        std::ofstream("/var/cfg/CustomTools.cfg") << "[CustomToolCfg]\n" << line << "\n";
    }
};

TEST_F(VideoOperations, StreamSettersSendOneWordEach)
{
    const struct {
        const char* name;
        int (*set)(uint32_t stream, uint32_t value);
        int firstCode;
        uint32_t sentFor6;
        int statusOfStream3;
    } cases[] = {
        {"EncodingType", CameraSetEncodingType, 67, 6, 0},
        {"FrameRate", CameraSetFrameRate, 74, 6, -1},
        {"BitRate", CameraSetBitRate, 71, 6144, -1},
        {"BitRateCtl", CameraSetBitRateCtl, 77, 6, -1},
        {"IFrameInterval", CameraSetIFrameInterval, 109, 6, -1},
        {"VideoQuality", CameraSetVideoQuality, 130, 6, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<Request> expected;
        for (uint32_t stream = 0; stream < 3; stream++) {
            EXPECT_EQ(c.set(stream, 6), 0);
            expected.push_back(Sent(c.firstCode + static_cast<int>(stream), c.sentFor6));
        }
        EXPECT_EQ(c.set(3, 6), c.statusOfStream3);
        EXPECT_EQ(Host().Take(), expected);
    }
}

TEST_F(VideoOperations, SettersIgnoreTheHostsResult)
{
    Host().AnswerWith([](const Request&) { return -1; });
    EXPECT_EQ(CameraSetFrameRate(0, 25), 0);
    Host().AnswerWith(nullptr);
}

TEST_F(VideoOperations, ResolutionNamesMatchByPrefix)
{
    const struct {
        uint32_t stream;
        const char* name;
        std::vector<uint32_t> sizes;
    } cases[] = {
        {0, "D1", {720, 480}},
        {0, "HD1", {352, 576}},
        {1, "720P", {1280, 720}},
        {2, "1080P", {1920, 1080}},
        {0, "VGA", {640, 480}},
        {0, "QVGA", {320, 240}},
        {0, "QQVGA", {160, 128}},
        {0, "WUXGA", {1536, 1536}},
        {0, "5M", {2592, 1944}},
        {0, "D1x", {720, 480}},
        {0, "8M", {}},
        {0, "1080", {}},
        {0, "", {}},
        {0, "d1", {}},
        {3, "D1", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(CameraSetResolution(c.stream, c.name), 0);
        std::vector<Request> expected;
        for (const uint32_t size : c.sizes) // codes of fields 4160 to 4165
            expected.push_back(
                Sent(80 + 2 * static_cast<int>(c.stream) + static_cast<int>(expected.size()), size));
        EXPECT_EQ(Host().Take(), expected);
    }
}

TEST_F(VideoOperations, ResolutionNamesMayFillTheirField)
{
    StreamResolutionName unended{.ulStream = 0, .ulReserved = 0, .szName = {}};
    memset(unended.szName, 'x', sizeof unended.szName);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Common_SetResolution(&unended, nullptr), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Not Support Resolution = " + std::string(64, 'x') +
                                                          "\n"),
              std::string::npos);
    EXPECT_EQ(CameraSetResolution(0, std::string(1000, 'y').c_str()), 0);
    EXPECT_EQ(Host().Take(), std::vector<Request>());
}

TEST_F(VideoOperations, FrameRateCapDependsOnSizeStandardAndEncoding)
{
    const struct {
        int width, height, mode;
        uint8_t standard, encoding;
        int cap;
    } cases[] = {
        {1920, 1080, -1, 0, 3, 30}, {1920, 1080, -1, 1, 3, 25}, {1920, 1080, -1, 2, 3, 30},
        {2592, 1944, -1, 0, 3, 20}, {2592, 1944, -1, 1, 3, 20}, {1944, 2592, -1, 0, 3, 20},
        {2560, 1920, -1, 0, 3, 20}, {2560, 1440, -1, 1, 3, 25}, {2592, 1944, -1, 0, 4, 15},
        {1280, 720, 3, 0, 2, 15},   {1280, 720, 0, 0, 4, 30},   {0, 0, -1, 1, 0, 25},
    };
    for (const auto& c : cases) {
        Host().Set(1313, c.standard);
        Host().Set(1335, c.encoding);
        EXPECT_EQ(GetMaxFrameRate(GetSysConfig(), c.width, c.height, c.mode), c.cap)
            << c.width << 'x' << c.height << " mode " << c.mode << " standard " << int(c.standard)
            << " encoding " << int(c.encoding);
    }
}

TEST_F(VideoOperations, EncoderRecordHoldsTheBlocksWords)
{
    Host().Set<uint16_t>(3472, 2592); // main stream above its cap of 20
    Host().Set<uint16_t>(3474, 1944);
    Host().Set<uint8_t>(1335, 3);
    Host().Set<int32_t>(1340, 25);
    Host().Set<int32_t>(1352, 2097152);
    Host().Set<uint8_t>(1364, 1);
    Host().Set<uint8_t>(1369, 11);
    Host().Set<uint8_t>(1372, 21);
    Host().Set<int32_t>(3436, 50);
    Host().Set<uint8_t>(3628, 31);
    Host().Set<uint16_t>(3630, 720); // second stream within it
    Host().Set<uint16_t>(3632, 480);
    Host().Set<uint8_t>(1336, 2);
    Host().Set<int32_t>(1344, 20);
    Host().Set<int32_t>(1356, 1049599);
    Host().Set<uint8_t>(1370, 12);
    Host().Set<uint8_t>(1373, 22);
    Host().Set<int32_t>(3448, 40);
    Host().Set<uint8_t>(3786, 32);
    Host().Set<uint16_t>(3788, 352); // third
    Host().Set<uint16_t>(3790, 288);
    Host().Set<int32_t>(1348, -3);
    Host().Set<int32_t>(1360, -1025);
    Host().Set<uint8_t>(1402, 77);
    const uint32_t expected[57] = {
        1,     20,         20,  2592,       1944,       0,     99,   11, 3,  64,  12288, 2048,
        1,     20,         100, 20,         31,         21,    77,   1,  20, 20,  720,   480,
        0,     99,         12,  2,          64,         12288, 1024, 0,  20, 100, 40,    32,
        22,    77,         1,   20,         0xFFFFFFFD, 352,   288,  0,  99, 0,   0,     64,
        12288, 0xFFFFFFFF, 0,   0xFFFFFFFD, 0xFFFFFFF1, 0,     0,    0,  77,
    };
    uint32_t words[57];
    EXPECT_EQ(CameraGetVideoEncoderConfig(reinterpret_cast<VideoEncoderConfig*>(words)), 0);
    for (size_t i = 0; i < std::size(words); i++)
        EXPECT_EQ(words[i], expected[i]) << "stream " << i / 19 << " word " << i % 19;

    Host().Set<uint8_t>(1335, 4);
    EXPECT_EQ(CameraGetVideoEncoderConfig(reinterpret_cast<VideoEncoderConfig*>(words)), 0);
    EXPECT_EQ(std::vector(words, words + 3), (std::vector<uint32_t>{1, 15, 15}));
    for (const int word : {10, 29, 48})
        EXPECT_EQ(words[word], 16384U);
}

// Image record index, block byte and message code, in the order of sending.
constexpr struct {
    uint8_t index;
    size_t block;
    int code;
} kImage[] = {
    {0, 1300, 186},  {2, 1301, 187},  {1, 1302, 188},  {3, 1303, 189},  {4, 1305, 256},
    {5, 1308, 198},  {6, 1309, 199},  {7, 1310, 200},  {8, 1307, 197},  {9, 1311, 194},
    {10, 1312, 195}, {11, 1320, 207}, {12, 1322, 208}, {13, 1323, 209}, {15, 1313, 64},
    {16, 1324, 210}, {17, 1325, 211}, {18, 1326, 212}, {19, 1327, 213}, {20, 1329, 215},
    {21, 1331, 217}, {22, 1332, 218}, {26, 1403, 219}, {23, 1401, 338}, {25, 1382, 220},
};

TEST_F(VideoOperations, ImageSettingsGoAsSingleBytesInOrder)
{
    ImageConfig image;
    for (uint8_t i = 0; i < sizeof image; i++)
        image.ucValue[i] = static_cast<uint8_t>(100 + i);
    EXPECT_EQ(CameraSetImageConfig(&image), 0);
    std::vector<Request> expected;
    for (const auto& row : kImage)
        expected.push_back(Sent(row.code, static_cast<uint8_t>(100 + row.index)));
    EXPECT_EQ(Host().Take(), expected);
}

TEST_F(VideoOperations, ImageRecordKeepsTheBytesThatBelongToNobody)
{
    ImageConfig image, expected;
    memset(&image, 0xEE, sizeof image);
    expected = image;
    for (const auto& row : kImage) {
        Host().Set(row.block, static_cast<uint8_t>(row.index + 1));
        expected.ucValue[row.index] = static_cast<uint8_t>(row.index + 1);
    }
    EXPECT_EQ(CameraGetImageConfig(&image), 0);
    EXPECT_EQ(std::to_array(image.ucValue), std::to_array(expected.ucValue));
}

TEST_F(VideoOperations, AudioSettings)
{
    AudioConfig config{.ulEncoding = 0x1234,
                       .ulReserved1 = 1,
                       .ulBitRate2 = 2,
                       .ulBitRate = 3,
                       .ulReserved4 = 4,
                       .ulBitRate5 = 5,
                       .ulSampleRate = 16000};
    EXPECT_EQ(CameraSetAudioConfig(&config), 0);
    EXPECT_EQ(Host().Take(), (std::vector{Sent<uint8_t>(168, 0x34), Sent<uint32_t>(169, 16000)}));
    Host().Set<uint8_t>(2441, 7);
    EXPECT_EQ(CameraGetAudioConfig(&config), 0);
    EXPECT_EQ(std::to_array(reinterpret_cast<const uint32_t(&)[7]>(config)),
              (std::array<uint32_t, 7>{7, 0, 64000, 8000, 0, 64000, 8000}));

    AudioProperty property{9, 1, 2, 3, 4, 5};
    testing::internal::CaptureStderr();
    EXPECT_EQ(CameraSetAudioProperty(&property), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(":pAudioProperty->ucCn           = 9\n"),
              std::string::npos);
    EXPECT_EQ(Host().Take(), (std::vector{Sent<uint8_t>(167, 1), Sent<uint8_t>(173, 2), Sent<uint8_t>(172, 3),
                                          Sent<uint8_t>(174, 4), Sent<uint8_t>(175, 5)}));
    for (const auto& [offset, value] : {std::pair(2440, 31), {2449, 32}, {2448, 33}, {2450, 34}, {2451, 35}})
        Host().Set(static_cast<size_t>(offset), static_cast<uint8_t>(value));
    EXPECT_EQ(CameraGetAudioProperty(&property), 0);
    EXPECT_EQ(std::to_array(reinterpret_cast<const uint8_t(&)[6]>(property)),
              (std::array<uint8_t, 6>{9, 31, 32, 33, 34, 35}));
}

TEST_F(VideoOperations, MotionDetection)
{
    MotionDetectionEx motion{};
    motion.ucEnable = 1;
    motion.ucSensitivity = 5;
    motion.ucRecStreamType = 2;
    std::vector<uint8_t> grid(128);
    for (size_t i = 0; i < grid.size(); i++)
        grid[i] = static_cast<uint8_t>(i);
    memcpy(motion.ulBlock, grid.data(), grid.size());
    std::vector<Request> expected = {
        Sent<uint8_t>(177, 1), Sent<uint8_t>(179, 5), {182, grid}, Sent<uint8_t>(183, 2)};
    EXPECT_EQ(CameraSetMotionDetectionExProperty(&motion), 0);
    EXPECT_EQ(Host().Take(), expected);
    motion.ucFlag = 1;
    expected.push_back(Sent<uint8_t>(233, 1));
    EXPECT_EQ(CameraSetMotionDetectionExProperty(&motion), 0);
    EXPECT_EQ(Host().Take(), expected);

    Host().Set<uint8_t>(2104, 1);
    Host().Set<uint8_t>(2106, 4);
    Host().Set<uint8_t>(7075, 3);
    for (size_t row = 0; row < 32; row++)
        Host().Set(2116 + 4 * row, static_cast<uint32_t>(row * 0x01010101));
    uint8_t record[552], literal[552] = {0, 1, 0, 4, 33};
    literal[536] = 3;
    for (size_t i = 0; i < 128; i++)
        literal[8 + i] = static_cast<uint8_t>(i / 4);
    memset(record, 0xEE, sizeof record);
    EXPECT_EQ(CameraGetMotionDetectionExProperty(reinterpret_cast<MotionDetectionEx*>(record)), 0);
    EXPECT_EQ(std::to_array(record), std::to_array(literal));
}

TEST_F(VideoOperations, EncodingScopeTellsCapAndCombinations)
{
    Host().Set<uint16_t>(3472, 2560);
    Host().Set<uint16_t>(3474, 1440);
    EncodingScope scope;
    memset(&scope, 0xEE, sizeof scope);
    EXPECT_EQ(CameraGetEncodingScope(&scope), 0);
    EXPECT_EQ(scope.ucCh, 0);
    EXPECT_EQ(scope.ucMaxFrameRate, 25);
    EXPECT_EQ(scope.ucReserved2, 0xEE);
    const std::string combinations = scope.szCombination;
    EXPECT_EQ(combinations.size(), 926U);
    EXPECT_EQ(std::ranges::count(combinations, '@'), 2);
    EXPECT_EQ(std::ranges::count(combinations, ';'), 33);
    EXPECT_TRUE(combinations.starts_with("H265:2592x1944;H265:2560x1920;"));
    EXPECT_TRUE(combinations.ends_with("MJPEG:1920x1080,MJPEG:720x480,MJPEG:352x288;"));

    ConfigureTools("CustomComboName=" + std::string(3000, 'c'));
    Host().Set<uint8_t>(1335, 4);
    EXPECT_EQ(CameraGetEncodingScope(&scope), 0);
    EXPECT_EQ(scope.ucMaxFrameRate, 15);
    EXPECT_EQ(scope.szCombination, std::string(1023, 'c'));
}

TEST_F(VideoOperations, ResolutionsAvailablePerStream)
{
    using Sizes = std::vector<std::pair<int, int>>;
    const auto sizesOf = [](uint32_t stream) {
        ResolutionRecord list{};
        EXPECT_EQ(CameraGetResolutionsAvailable(stream, &list), 0);
        Sizes sizes;
        for (int i = 0; i < list.iCount; i++)
            sizes.emplace_back(list.entry[i].iWidth, list.entry[i].iHeight);
        return sizes;
    };
    EXPECT_EQ(sizesOf(0), (Sizes{{2592, 1944}, {2560, 1920}, {2560, 1440}, {1920, 1080}, {1280, 720}}));
    EXPECT_EQ(sizesOf(1), (Sizes{{720, 480}}));
    EXPECT_EQ(sizesOf(2), (Sizes{{352, 288}}));
    ResolutionRecord untouched{};
    EXPECT_EQ(CameraGetResolutionsAvailable(3, &untouched), -1);
    EXPECT_EQ(CameraGetResolutionsAvailable(0xFFFFFFFF, &untouched), -1);
    ConfigureTools("CustomComboName=H264:1x1;");
    EXPECT_EQ(CameraGetResolutionsAvailable(0, &untouched), -1);
    EXPECT_EQ(untouched.iCount, 0);
}

TEST_F(VideoOperations, MissingPointersAreRefused)
{
    EXPECT_EQ(CameraGetVideoEncoderConfig(nullptr), -1);
    EXPECT_EQ(CameraSetImageConfig(nullptr), -1);
    EXPECT_EQ(CameraSetResolution(0, nullptr), -1);
    EXPECT_EQ(CameraGetResolutionsAvailable(0, nullptr), -1);
    for (const size_t command :
         std::initializer_list<size_t>{1,  15, 17, 18, 20,  22,  23,  24,  25,  26,  27, 33,
                                       57, 59, 80, 81, 100, 101, 107, 108, 127, 132, 133})
        EXPECT_EQ(CameraAccessTable()[command].operation(nullptr, nullptr), -1) << command;
    EXPECT_EQ(Host().Take(), std::vector<Request>());
}

} // namespace
