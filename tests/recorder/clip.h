// Real video for the tests, made when they run, and a second opinion on the files that were written.
#pragma once

#include <string>
#include <vector>

#include "tests/captured_output.h"
#include "tests/temporary_directory.h"

struct ClipFrame {
    bool isKey;
    std::string bytes; // Annex B; key frames begin with their parameter sets
};

// A moving pattern of 96 lines, a key frame every `gop` frames, no reordering. The codec is h264 or hevc.
inline std::vector<ClipFrame> EncodeClip(const std::string& codec, int width, int frames, int gop)
{
    const bool isH264 = codec == "h264";
    const std::string clip = OutputOf(
        "ffmpeg -nostdin -v error -f lavfi -i testsrc2=r=25:s=" + std::to_string(width) + "x96 -frames:v " +
        std::to_string(frames) + " -g " + std::to_string(gop) + " -pix_fmt yuv420p -threads 1 -c:v lib" +
        (isH264 ? "x264" : "x265 -x265-params log-level=none:pools=none:scenecut=0") +
        " -preset ultrafast -tune zerolatency -bsf:v " + codec + "_metadata=aud=insert -f " + codec + " -");
    // Each frame lies behind a delimiter, which a camera does not send.
    const std::string delimiter = isH264 ? std::string("\0\0\0\1\x09", 5) : std::string("\0\0\0\1\x46\1", 6);
    const std::string parameters(isH264 ? "\0\0\0\1\x67" : "\0\0\0\1\x40", 5);
    std::vector<ClipFrame> result;
    for (size_t at = 0, next = 0; at < clip.size(); at = next) {
        next = std::min(clip.find(delimiter, at + 1), clip.size());
        const size_t begin = at + delimiter.size() + 1;
        const std::string bytes = clip.substr(begin, next - begin);
        result.push_back({bytes.starts_with(parameters), bytes});
    }
    return result;
}

// What another program reads in the file, decoding it all; a line for each entry and each error.
inline std::string
Probe(const std::string& path,
      const std::string& entries = "stream=codec_name,width,nb_read_frames -select_streams v")
{
    return OutputOf("ffprobe -v error -count_frames -of csv=p=0 -show_entries " + entries + " " + path +
                    " 2>&1");
}
