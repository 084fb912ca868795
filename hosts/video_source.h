// The endless video of one stream: a file played over and over, either as it is or encoded anew, or a
// test picture.
//
// Two times belong to a frame: the play time runs on for ever and says when the frame is due; the media
// time is the place in the file, by which the sound is found. A jump to a key frame moves the media time
// alone. Not thread-safe: the player's thread. Failures throw std::runtime_error.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "hosts/annexb.h"
#include "hosts/stream_facts.h"

struct FrameTime {
    int64_t playUs;
    int64_t mediaUs;
};

class VideoSource {
  public:
    virtual ~VideoSource() = default;

    [[nodiscard]] virtual StreamFacts facts() const = 0;
    // Time of media time 0 on the file's own clock.
    [[nodiscard]] virtual int64_t OriginUs() const = 0;
    // When the next frame is due.
    virtual FrameTime Peek() = 0;
    // The next frame, a key frame when asked for, with the times it really has.
    virtual AccessUnit Take(bool keyFrame, FrameTime* time) = 0;
    // Called when the machine cannot keep up: leaves out more frames. Returns false when it cannot.
    virtual bool LowerRate() = 0;
};

// Opens a file as the video of a stream whose frames may have `frameLimit` bytes and whose encoder, if
// one is needed, makes `bitRate`. Logs how it is played, and why when it must be encoded.
std::unique_ptr<VideoSource> OpenVideo(const std::string& path, size_t frameLimit, int32_t bitRate);

// One line that tells what is played under the name, and how.
void LogFacts(const char* name, const char* how, const StreamFacts& facts);
