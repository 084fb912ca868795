#include "config/resolution_names.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

#include "camera/camera_commands.h"
#include "common/log.h"

namespace {

constexpr int32_t kAny = 0; // height of a row for all heights that no row above it names
constexpr int32_t kThirdStream = 2;
constexpr char kNameOfOtherWidths[] = "1080P";

// Sizes that have the same number of pixels do not always have the same name.
constexpr struct SizeName {
    int32_t width;
    int32_t height;
    const char* name; // null: the size has none
} kSizeNames[] = {
    {160, kAny, "QQVGA"},  {176, kAny, "QCIF"},   {240, kAny, "ND1"},    {320, kAny, "QVGA"},
    {352, 576, "HD1"},     {352, 480, "HD1"},     {352, kAny, "CIF"},    {480, kAny, "SVCD"},
    {640, 480, "VGA"},     {640, 360, "SVCD"},    {640, 320, "BCIF"},    {640, 720, "720N"},
    {640, kAny, "VGA"},    {704, 288, "BCIF"},    {704, 240, "BCIF"},    {704, kAny, "D1"},
    {720, 288, "BCIF"},    {720, 240, "BCIF"},    {720, 720, "720N"},    {720, kAny, "D1"},
    {926, kAny, "650TVL"}, {960, kAny, "1080N"},  {1024, 1024, "720P"},  {1024, kAny, "WSVGA"},
    {1280, 720, "720P"},   {1280, 1280, "UXGA"},  {1280, kAny, "1_3M"},  {1520, 1520, "WUXGA"},
    {1520, kAny, nullptr}, {1536, 1536, "WUXGA"}, {1536, kAny, nullptr}, {1600, kAny, "UXGA"},
    {1872, kAny, "2_5M"},  {1920, 1200, "WUXGA"}, {1920, kAny, "1080P"}, {2048, 2048, "4M"},
    {2048, kAny, "3M"},    {2160, 2160, "5M"},    {2160, kAny, "3M"},    {2304, kAny, "3M"},
    {2560, 1440, "4M"},    {2560, 1920, "5M"},    {2560, kAny, nullptr}, {2592, 1944, "5M"},
    {2592, 1520, "4M"},    {2592, kAny, "3M"},    {3072, 2048, "5M"},    {3072, kAny, "6M"},
    {3264, kAny, "8M"},    {3744, kAny, "5M"},    {3840, 2160, "5M"},    {3840, kAny, "8M"},
    {4000, 3000, "5M"},    {4000, kAny, "12M"},   {4096, kAny, "4K"},
};

// By bit of a "ResolutionMask"
constexpr const char* kMaskNames[] = {
    "D1",  "HD1",    "BCIF", "CIF",  "QCIF", "VGA",   "QVGA",  "SVCD", "QQVGA",
    "ND1", "650TVL", "720P", "1_3M", "UXGA", "1080P", "WUXGA", "2_5M", "3M",
    "5M",  "1080N",  "4M",   "6M",   "8M",   "12M",   "4K",    "720N", "WSVGA",
};
static_assert(std::size(kMaskNames) == 27);

std::span<const ResolutionEntry> EntriesOf(const ResolutionRecord& record)
{
    return {record.entry, static_cast<size_t>(std::clamp<int32_t>(record.iCount, 0, kResolutionEntries))};
}

ResolutionRecord SizesOf(int32_t stream)
{
    ResolutionRecord record{};
    (void)CameraGetResolutionsAvailable(static_cast<uint32_t>(stream), &record); // none if it fails
    return record;
}

// The bit of a name, or 0.
uint32_t BitOf(const char* name)
{
    for (uint32_t bit = 0; name != nullptr && bit < std::size(kMaskNames); ++bit)
        if (strcmp(name, kMaskNames[bit]) == 0)
            return 1U << bit;
    return 0;
}

} // namespace

const char* GetResolutionName(int32_t width, int32_t height)
{
    const auto* const row =
        std::find_if(std::begin(kSizeNames), std::end(kSizeNames), [width, height](const SizeName& size) {
            return size.width == width && (size.height == kAny || size.height == height);
        });
    return row != std::end(kSizeNames) ? row->name : kNameOfOtherWidths;
}

int IsResolutionSupported(int32_t stream, const char* name)
{
    if (name == nullptr)
        return -1;
    const ResolutionRecord record = SizesOf(stream);
    for (const ResolutionEntry& size : EntriesOf(record)) {
        const char* const listed = GetResolutionName(size.iWidth, size.iHeight);
        if (listed != nullptr && strcmp(listed, name) == 0)
            return 0;
    }
    return stream == kThirdStream ? 0 : -1;
}

uint32_t ResolutionCombo(int32_t stream)
{
    const ResolutionRecord record = SizesOf(stream);
    const std::span<const ResolutionEntry> sizes = EntriesOf(record);
    uint32_t mask = 0;
    for (size_t i = 0; i < sizes.size(); ++i) {
        const char* const name = GetResolutionName(sizes[i].iWidth, sizes[i].iHeight);
        const uint32_t bit = BitOf(name);
        if (bit == 0)
            LogTrace("###########NOT SUPPORT THIS Resolution############%s %d Name[%d] = %s\n", __func__,
                     __LINE__, static_cast<int>(i), name != nullptr ? name : "");
        mask |= bit;
    }
    return mask;
}
