#include "camera/image_operations.h"

#include "camera/camera_records.h"
#include "camera/image_fields.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/log.h"

namespace {

// Indices of the settings that the log names.
enum ImageIndex : uint8_t {
    kBrightness = 0,
    kColor = 1,
    kContrast = 2,
    kSharpness = 3,
    kWhiteBalance = 8,
    kNoiseReduction = 16,
    kStrongLightInhibition = 21,
    kStrongLightStrength = 22,
    kElectronicAntiShake = 25,
    kDarkAreaAscension = 26,
};

} // namespace

int Common_GetImageConfig(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    auto& image = *static_cast<ImageConfig*>(output);
    for (const ImageField& field : kImageFields)
        image.ucValue[field.ucIndex] = BlockField<uint8_t>(config, field.usBlock);
    LogTrace("%s %d: lan_config.nDNRModel = %d\n", __func__, __LINE__, image.ucValue[kNoiseReduction]);
    LogTrace("%s %d: lan_config.ucElectronicAntiShakeEnable = %d\n", __func__, __LINE__,
             image.ucValue[kElectronicAntiShake]);
    return kCameraOk;
}

int Common_SetImageConfig(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const uint8_t* const value = static_cast<const ImageConfig*>(input)->ucValue;
    LogTrace("%s %d: Bright = %d Color = %d Contrast = %d Sharp = %d\n", __func__, __LINE__,
             value[kBrightness], value[kColor], value[kContrast], value[kSharpness]);
    LogTrace("%s %d ImageConfig->ucElectronicAntiShakeEnable = %d\n", __func__, __LINE__,
             value[kElectronicAntiShake]);
    LogTrace("%s %d ImageConfig->nWhiteBalance = %d\n", __func__, __LINE__, value[kWhiteBalance]);
    for (const ImageField& field : kImageFields) {
        if (field.ucIndex == kStrongLightInhibition)
            LogTrace("%s %d: ucSLInhibition = %d   ucSLInhibitionStreangth = %d ucSLDarkAreaAscension = %d\n",
                     __func__, __LINE__, value[kStrongLightInhibition], value[kStrongLightStrength],
                     value[kDarkAreaAscension]);
        (void)ControlSystemData(field.ulField, &value[field.ucIndex], 1);
    }
    return kCameraOk;
}
