// Wrappers of the camera commands: the only way in which protocol code reaches a camera operation.
//
// Each checks its pointers (-1), then that the command may run (CameraCmdCheck), then calls the
// operation and returns its status (CameraStatus, or the operation's own negative code). Thread-safe
// once CameraInit has returned; a setter waits for the parameter host's answer.
#pragma once

#include <cstdint>

#include "camera/camera_records.h"

// Once per process, before any command. Type 1 selects the full table; the process kind goes to
// Common_Init. A later call returns -2 and changes nothing.
int CameraInit(uint32_t type, uint32_t processKind);
// 0 when the command may be run, else -3, -4, -7 or -5.
int CameraCmdCheck(uint32_t command);

int CameraGetVideoEncoderConfig(VideoEncoderConfig* out);                      // 15
int CameraGetImageConfig(ImageConfig* out);                                    // 17
int CameraSetImageConfig(ImageConfig* in);                                     // 18
int CameraSetResolution(uint32_t stream, const char* name);                    // 20
int CameraSetVideoQuality(uint32_t stream, uint32_t quality);                  // 22
int CameraSetFrameRate(uint32_t stream, uint32_t framesPerSecond);             // 23
int CameraSetBitRate(uint32_t stream, uint32_t kbps);                          // 24
int CameraSetBitRateCtl(uint32_t stream, uint32_t control);                    // 25
int CameraSetIFrameInterval(uint32_t stream, uint32_t frames);                 // 26
int CameraGetAudioConfig(AudioConfig* out);                                    // 27
int CameraSetAlarmCallback(uint32_t type, AlarmCallback* callback);            // 33
int CameraSetStreamCallback(uint32_t type, StreamCallback* callback);          // 57
int CameraGetResolutionsAvailable(uint32_t stream, ResolutionRecord* out);     // 59
int CameraGetAudioProperty(AudioProperty* out);                                // 80
int CameraSetAudioProperty(AudioProperty* in);                                 // 81
int CameraGetEncodingScope(EncodingScope* out);                                // 100
int CameraSetEncodingType(uint32_t stream, uint32_t encoding);                 // 101
int CameraSetArgeementProperty(AgreementEntry* in);                            // 107
int CameraGetArgeementProperty(AgreementEntry* selector, AgreementEntry* out); // 108
int CameraSetAudioConfig(AudioConfig* in);                                     // 127
int CameraSetMotionDetectionExProperty(MotionDetectionEx* in);                 // 132
int CameraGetMotionDetectionExProperty(MotionDetectionEx* out);                // 133
