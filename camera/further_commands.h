// Wrappers of camera commands that this program never calls, for which the layer still has an answer or
// a name of its own. Same rules as in camera_commands.h; a record that this program does not know is
// passed as it is.
#pragma once

#include <cstdint>

#include "camera/camera_records.h"

int CameraReserved19();                                                     // 19
int CameraSetResolution2(uint32_t stream, uint32_t width, uint32_t height); // 21
int CameraCmd28();                                                          // 28
int CameraGetChannelEnable(ChannelEnable* out);                             // 30
int CameraReserved31();                                                     // 31
int CameraReserved32();                                                     // 32
int CameraReserved51(const void* in);                                       // 51
int CameraReserved55(void* out);                                            // 55
int CameraGetTestVideoFrame(uint32_t stream, TestVideoFrame* out);          // 56
int CameraGetPtzPresets(PtzPresetList* out);                                // 61
int CameraCmd63(uint32_t* out);                                             // 63
int CameraGetUpGradeFileSaveName(void* out);                                // 87
int CameraSetMobilePort(const void* in);                                    // 89
int CameraGetDateTimeProperty(void* out);                                   // 95
int CameraSetDateTimeProperty(const void* in);                              // 96
int CameraReserved138();                                                    // 138
int CameraCheckUpGradeFile(const void* in);                                 // 139
int CameraGetPlayBackQueryFiles(const void* in, void* out);                 // 144
int CameraSetPTZSerialProperty(const void* in);                             // 145
int CameraGetPTZSerialProperty(void* out);                                  // 146
int CameraSetPTZ3DZoom(const void* in);                                     // 161
int CameraSetPreviewModeConfig(const void* in);                             // 170
