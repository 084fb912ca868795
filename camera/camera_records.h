// Records that camera commands take and give. All of them are arrays of plain words or bytes, as the
// firmware's processes exchange them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/resolution_parser.h"

// Operations and wrappers: 0 is success.
enum CameraStatus : int {
    kCameraOk = 0,
    kCameraFailed = -1,      // a required pointer is missing, or a step failed
    kCameraInitialized = -2, // CameraInit was called before
    kCameraNotInitialized = -3,
    kCameraUnknown = -4,         // no table for the camera type
    kCameraNotSupported = -5,    // the command has no operation
    kCameraCommandMismatch = -7, // the table's row is not the command's
};

// Command 15: three of these, main stream first.
struct StreamEncoderConfig {
    uint32_t ulMinFrameRate;      // 1
    uint32_t ulMaxFrameRate;      // cap for the main stream's size, the same for all streams
    uint32_t ulFrameRate;         // frames a second, at most the cap
    uint32_t ulWidth;             // pixels
    uint32_t ulHeight;            // pixels
    uint32_t ulMinQuality;        // 0
    uint32_t ulMaxQuality;        // 99
    uint32_t ulQuality;           // 1 best to 6, or anything when nobody has set it
    uint32_t ulEncoding;          // 2 H.264, 3 H.265, 4 MJPEG
    uint32_t ulMinBitRate;        // 64
    uint32_t ulMaxBitRate;        // 16384 for an MJPEG main stream, else 12288
    uint32_t ulBitRateKbps;       // of 1024 bit/s
    uint32_t ulBitRateControl;    // 0 CBR, 1 VBR
    uint32_t ulMinIFrameInterval; // as ulFrameRate
    uint32_t ulMaxIFrameInterval; // five times ulFrameRate
    uint32_t ulIFrameInterval;    // frames
    uint32_t ulStreamByte16;
    uint32_t ulStreamByte17;
    uint32_t ulSmartEncoding; // 1 on
};
static_assert(sizeof(StreamEncoderConfig) == 76);
static_assert(offsetof(StreamEncoderConfig, ulEncoding) == 8 * sizeof(uint32_t));
static_assert(offsetof(StreamEncoderConfig, ulIFrameInterval) == 15 * sizeof(uint32_t));

struct VideoEncoderConfig {
    StreamEncoderConfig stream[3];
};
static_assert(sizeof(VideoEncoderConfig) == 228);

// Commands 17 and 18; the indices stand in image_fields.h, 14 and 24 belong to nobody.
struct ImageConfig {
    uint8_t ucValue[27];
};
static_assert(sizeof(ImageConfig) == 27);

// Commands 27 and 127
struct AudioConfig {
    uint32_t ulEncoding;
    uint32_t ulReserved1;
    uint32_t ulBitRate2;
    uint32_t ulBitRate; // getter: 8000; setter: bit rate
    uint32_t ulReserved4;
    uint32_t ulBitRate5;
    uint32_t ulSampleRate; // getter: 8000; setter: sample rate
};
static_assert(sizeof(AudioConfig) == 28);

// Commands 80 and 81
struct AudioProperty {
    uint8_t ucCn; // channel; not used
    uint8_t ucEnable;
    uint8_t ucOutputVolume;
    uint8_t ucInputVolume;
    uint8_t ucInputModel;
    uint8_t ucOutputModel;
};
static_assert(sizeof(AudioProperty) == 6);

// Commands 132 and 133
struct MotionDetectionEx {
    uint8_t ucCh;
    uint8_t ucEnable;
    uint8_t ucFlag; // setter: 1 also sends field 4313
    uint8_t ucSensitivity;
    uint8_t ucDelimitType; // getter: 33
    uint8_t ucReserved5[3];
    uint32_t ulBlock[32]; // area grid, one row mask a row
    uint8_t ucReserved136[400];
    uint8_t ucRecStreamType;
    uint8_t ucReserved537[15];
};
static_assert(offsetof(MotionDetectionEx, ulBlock) == 8);
static_assert(offsetof(MotionDetectionEx, ucRecStreamType) == 536);
static_assert(sizeof(MotionDetectionEx) == 552);

// Command 100
struct EncodingScope {
    uint8_t ucCh; // 0
    uint8_t ucMaxFrameRate;
    uint8_t ucReserved2; // untouched
    char szCombination[1024];
};
static_assert(sizeof(EncodingScope) == 1027);

// Commands 22 to 26 and 101. The name stands where command 20 has its own; the wrappers leave it empty,
// and the frame-rate setter logs it.
struct StreamValue {
    uint32_t ulStream;
    uint32_t ulValue;
    char szName[64];
};
static_assert(offsetof(StreamValue, szName) == 8);

// Command 20
struct StreamResolutionName {
    uint32_t ulStream;
    uint32_t ulReserved; // 0
    char szName[64];
};
static_assert(sizeof(StreamResolutionName) == 72);

// Command 21
struct StreamSize {
    uint32_t ulStream;
    uint32_t ulWidth;
    uint32_t ulHeight;
};

// Commands 107 and 108: one entry a network service
struct AgreementEntry {
    uint8_t ucCh;
    uint8_t ucEnable; // getter: 1
    uint8_t ucArgType;
    uint8_t ucReserved3;
    uint16_t usPort;
    uint8_t ucSwitch6; // meaning depends on the service
    uint8_t ucSwitch7;
    uint8_t ucReserved8[136];
};
static_assert(offsetof(AgreementEntry, usPort) == 4);
static_assert(sizeof(AgreementEntry) == 144);

enum AgreementType : uint8_t {
    ARG_AGREEMENT_RTSP = 1,
    ARG_AGREEMENT_OST = 2,
    ARG_AGREEMENT_PRIVATE = 4,
    ARG_AGREEMENT_ONVIF = 8,
    ARG_AGREEMENT_HTTP = 16,
    ARG_AGREEMENT_VLM = 32, // the protocol that this program serves
    ARG_AGREEMENT_HTTPS = 64,
    ARG_AGREEMENT_PALLO = 72,
    ARG_AGREEMENT_ALL = 255, // seven entries
};

// Commands 3, 35, 37 and 43. An interface's name is "eth0" or "wlan0".
inline constexpr size_t kInterfaceTextBytes = 16;
inline constexpr size_t kMacTextBytes = 18; // "XX:XX:XX:XX:XX:XX"
struct InterfaceAddress {
    char szInterface[kInterfaceTextBytes];
    char szAddress[32]; // dotted IPv4
};
static_assert(offsetof(InterfaceAddress, szAddress) == 16);

// Command 5
struct DhcpStatue {
    uint32_t ulInterface; // 0 eth0, 1 wlan0
    uint32_t ulEnable;
};

// Command 52, in the camera's own time zone
struct CameraDateTime {
    uint32_t ulYear;
    uint32_t ulMonth; // 1 to 12
    uint32_t ulReserved2;
    uint32_t ulDay;
    uint32_t ulHour;
    uint32_t ulMinute;
    uint32_t ulSecond;
};
static_assert(sizeof(CameraDateTime) == 28);

// Command 54
struct TimeZoneSetting {
    uint32_t ulFlag;
    uint32_t ulIndex; // 0 to 48: (index - 24) / 2 hours
};

// Command 11; the texts end in zero
struct DeviceInformation {
    char szManufacturer[128];
    char szModel[128];
    char szFirmwareVersion[128];
    char szSerialNumber[128];
    char szHardwareId[128];
    uint8_t ucConstant; // 214
    char szChip[16];
    char szSensor[8];
};
static_assert(offsetof(DeviceInformation, szHardwareId) == 512);
static_assert(offsetof(DeviceInformation, szSensor) == 657);
static_assert(sizeof(DeviceInformation) == 665);

// Command 60
struct PtzControl {
    uint32_t ulChannel; // the low byte counts
    uint32_t ulAction;
    uint32_t ulValue; // speed step, preset index or tour index
    char szName[32];  // of a preset; may lack its zero
};
static_assert(sizeof(PtzControl) == 11 * sizeof(uint32_t));

// Command 104
struct PtzProperty {
    uint8_t ucReserved0;
    uint8_t ucStep; // 1 to 8; other values are clamped
    uint8_t ucReserved2[2];
    uint8_t ucApertureMode;
    uint8_t ucApertureVal;
    uint8_t ucFocusingModel;
    char ucRes[57]; // a text with "onvif" in it: only the step counts
};
static_assert(offsetof(PtzProperty, ucRes) == 7);

// Commands 155 and 156
struct CruisePoint {
    uint8_t ucCh;
    uint8_t ucIndex; // of the tour
    uint8_t ucReserved2;
    uint8_t ucReserved3;
    uint8_t ucEnable;
    uint8_t ucPresetPointIndex;
    uint8_t ucStep;
    uint8_t ucReserved7;
    uint32_t ulDwelltime; // seconds
    uint8_t ucReserved12[16];
};
static_assert(sizeof(CruisePoint) == 28);
struct CruiseLine {
    uint8_t ucCh;
    uint8_t ucIndex; // of the tour, 0 to 31
    uint8_t ucEnable;
    uint8_t ucReserved3[65];
    CruisePoint point[16];
    uint8_t ucReserved516[448];
    uint8_t ucTourFlag;  // selector: start value; output: that and the number of enabled points
    uint8_t ucPointFlag; // selector: a preset index; output: the first point with it, 0 if none has
    uint8_t ucReserved966[14];
};
static_assert(offsetof(CruiseLine, point) == 68);
static_assert(offsetof(CruiseLine, ucTourFlag) == 964);
static_assert(sizeof(CruiseLine) == 980);

// Commands 44 to 47
struct CameraUser {
    char szName[128];
    char szPassword[128];
    uint32_t ulAuthority;
};
static_assert(sizeof(CameraUser) == 260);
struct UserList {
    uint32_t ulCount;
    CameraUser strAcount[16];
};

// Alarm and stream callbacks (commands 33 and 57)
using AlarmCallback = void(uint32_t kind, uint32_t state, uint32_t state2);
struct DataInfo;
using StreamCallback = int(uint32_t kind, uint32_t stream, const uint8_t* data, int32_t length,
                           const DataInfo* header);
inline constexpr uint32_t kCallbackVelmora = 4; // the type under which this program registers both

struct AlarmRegistration {
    uint32_t ulType;
    AlarmCallback* callback; // null empties the slot
};

struct StreamRegistration {
    uint32_t ulType;
    StreamCallback* callback;
};

// Command 30
struct ChannelEnable {
    uint32_t ulEnable[3]; // 1 each
};

// Command 56: a frame goes into the caller's buffer.
struct TestVideoFrame {
    uint8_t* pucData;
    uint32_t ulCapacity;
    uint32_t ulBytes; // of the frame; set on success
};

// Command 61
struct PtzPreset {
    char szName[64];
    float fPan;
    float fTilt;
    float fZoom;
};

struct PtzPresetList {
    PtzPreset preset[128];
};
