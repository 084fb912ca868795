// Real video for the tests, made when they run, and a second opinion on the files that were written.
#pragma once

#include <string>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

struct ClipFrame {
    bool isKey;
    std::string bytes; // Annex B; key frames begin with their parameter sets
};

// A moving pattern at 25 frames a second, a key frame every `gop` frames, no reordering.
std::vector<ClipFrame> EncodeClip(AVCodecID codec, int width, int height, int frames, int gop);

struct ReadTrack {
    AVCodecID codec;
    int width;
    int height;
    std::vector<double> stamps;     // seconds, one for each packet
    std::vector<std::string> bytes; // of each packet
    int decoded = 0;                // frames that decoded without an error
};

// Opens a media file, reads and decodes everything; one entry for each track.
std::vector<ReadTrack> ReadBack(const std::string& path);

// A file's bytes; empty when there is none.
std::string ReadFile(const std::string& path);

// A folder of this test's own, removed at its end.
struct TempFolder {
    std::string path;
    TempFolder();
    ~TempFolder();
    [[nodiscard]] std::string File(const char* name) const { return path + "/" + name; }
};
