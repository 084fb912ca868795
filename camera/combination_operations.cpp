// Operations that answer from the maker's resolution combinations: one group of choices for cameras with
// one stream, one for two and one for three.

#include <cstring>

#include "camera/camera_records.h"
#include "camera/custom_tools.h"
#include "camera/video_operations.h"
#include "common/inifile.h"
#include "common/log.h"

namespace {

constexpr char kDefaultCombinations[] =
    "H265:2592x1944;H265:2560x1920;H265:2560x1440;H265:1920x1080;H265:1280x720;H264:2592x1944;"
    "H264:2560x1920;H264:2560x1440;H264:1920x1080;H264:1280x720;MJPEG:1920x1080;@"
    "H265:2592x1944,H265:720x480;H265:2560x1920,H265:720x480;H265:2560x1440,H265:720x480;"
    "H265:1920x1080,H265:720x480;H265:1280x720,H265:720x480;H264:2592x1944,H264:720x480;"
    "H264:2560x1920,H264:720x480;H264:2560x1440,H264:720x480;H264:1920x1080,H264:720x480;"
    "H264:1280x720,H264:720x480;MJPEG:1920x1080,MJPEG:720x480;@"
    "H265:2592x1944,H265:720x480,H265:352x288;H265:2560x1920,H265:720x480,H265:352x288;"
    "H265:2560x1440,H265:720x480,H265:352x288;H265:1920x1080,H265:720x480,H265:352x288;"
    "H265:1280x720,H265:720x480,H265:352x288;H264:2592x1944,H264:720x480,H264:352x288;"
    "H264:2560x1920,H264:720x480,H264:352x288;H264:2560x1440,H264:720x480,H264:352x288;"
    "H264:1920x1080,H264:720x480,H264:352x288;H264:1280x720,H264:720x480,H264:352x288;"
    "MJPEG:1920x1080,MJPEG:720x480,MJPEG:352x288;";
constexpr size_t kCombinationBytes = 2048;
constexpr uint8_t kEncodingMjpeg = 4;
constexpr uint8_t kMjpegFrameRate = 15;

void ReadCombinations(char* text, size_t size)
{
    read_profile_string(kCustomToolsSection, "CustomComboName", text, size, kDefaultCombinations,
                        kCustomToolsFile);
}

} // namespace

int Common_GetEncodingScope(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    auto& scope = *static_cast<EncodingScope*>(output);
    scope.ucCh = 0;
    const int cap = GetMaxFrameRate(config, BlockField<uint16_t>(config, block::kWidth(0)),
                                    BlockField<uint16_t>(config, block::kHeight(0)), kCapByEncoding);
    const bool isMjpeg = BlockField<uint8_t>(config, block::kEncoding(0)) == kEncodingMjpeg;
    scope.ucMaxFrameRate = isMjpeg ? kMjpegFrameRate : static_cast<uint8_t>(cap);
    ReadCombinations(scope.szCombination, sizeof scope.szCombination);
    return kCameraOk;
}

int Common_GetResolutionsAvailable(const void* input, void* output)
{
    if (input == nullptr || output == nullptr || GetSysConfig() == nullptr)
        return kCameraFailed;
    const uint32_t stream = *static_cast<const uint32_t*>(input);
    if (stream >= kResolutionStreams)
        return kCameraFailed;
    char text[kCombinationBytes];
    ReadCombinations(text, sizeof text);
    ResolutionRecord lists[kResolutionStreams];
    if (LS_COMMON_ParseResolution(text, lists) != 0) {
        LogTrace("%s %d: CustomComboName has no groups, ignoring it\n", __func__, __LINE__);
        return kCameraFailed;
    }
    const ResolutionRecord& list = lists[stream];
    LogTrace("%s %d index = %d, Resolutions->sizeResolutions = %d\n", __func__, __LINE__, stream,
             list.iCount);
    for (int i = 0; i < list.iCount; i++)
        LogTrace("%s %d: width = %d, height = %d\n", __func__, __LINE__, list.entry[i].iWidth,
                 list.entry[i].iHeight);
    memcpy(output, &list, sizeof list);
    return kCameraOk;
}
