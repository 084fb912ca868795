// Parser of the resolution-combination text, from which the camera layer derives the sizes that each
// stream may use.
//
// The text has three sections divided by "@": single-stream choices, two-stream combinations and
// three-stream combinations. Choices end in ";", the streams of one combination are divided by ",",
// and each is a codec and a size such as "H265:1920x1080". Thread-safe.
#pragma once

#include <cstdint>

inline constexpr int kResolutionStreams = 3; // main, second, third
inline constexpr int kResolutionEntries = 8; // further distinct sizes of a stream are dropped

struct ResolutionEntry {
    int32_t iReserved; // 0
    int32_t iWidth;    // pixels
    int32_t iHeight;   // pixels
};

// Sizes of one stream. A stream without any has count 1 and the entry 0x0.
struct ResolutionRecord {
    int32_t iCount; // 1 to 8
    ResolutionEntry entry[kResolutionEntries];
};
static_assert(sizeof(ResolutionRecord) == 100);

// Fills one record per stream. Returns 0, or -1 when the text contains no "@" (records untouched).
int LS_COMMON_ParseResolution(const char* text, ResolutionRecord (&out)[kResolutionStreams]);

// Splits "1920x1080" at its first "x", which is overwritten with a zero byte. Returns 0, or -1 when
// the text has no "x" (outputs untouched).
int ParseSizeText(char* text, int32_t* width, int32_t* height);
