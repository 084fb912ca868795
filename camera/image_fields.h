// The image settings: index in the image record, byte in the parameter block and parameter field,
// in the order in which changes are sent.
#pragma once

#include <cstdint>

struct ImageField {
    uint8_t ucIndex;  // byte of the image record
    uint16_t usBlock; // byte of the parameter block
    uint32_t ulField; // parameter field of a change
};

inline constexpr ImageField kImageFields[] = {
    {0, 1300, 4111}, // brightness
    {2, 1301, 4112}, // contrast
    {1, 1302, 4113}, // colour
    {3, 1303, 4114}, // sharpness
    {4, 1305, 4116},  {5, 1308, 4119},  {6, 1309, 4120},
    {7, 1310, 4121},  {8, 1307, 4118}, // nWhiteBalance
    {9, 1311, 4122},  {10, 1312, 4123}, {11, 1320, 4131},
    {12, 1322, 4132}, {13, 1323, 4133}, {15, 1313, 4124}, // frame-rate standard
    {16, 1324, 4134},                                     // nDNRModel
    {17, 1325, 4135}, {18, 1326, 4136}, {19, 1327, 4137},
    {20, 1329, 4139}, {21, 1331, 4141}, // ucSLInhibition
    {22, 1332, 4142},                   // ucSLInhibitionStreangth
    {26, 1403, 4143},                   // ucSLDarkAreaAscension
    {23, 1401, 4385}, {25, 1382, 4144}, // ucElectronicAntiShakeEnable
};
