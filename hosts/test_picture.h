// A test picture as the video of a stream, encoded with the settings of the stream: for whoever sets
// other ones than the file has that the stream plays, or moves the camera's head, which no file follows.
#pragma once

#include <cstdint>
#include <memory>

#include "hosts/motors.h"
#include "hosts/stream_facts.h"
#include "hosts/video_source.h"

// Media times go round in `soundUs`, so that the sound of the file goes on. Frame rate, bit rate and
// I-frame interval are brought into the range that can be encoded; facts() tells what became of them.
// What is seen is where the head looks; without one, straight ahead. Throws std::runtime_error for a codec
// or a size that cannot be encoded here.
std::unique_ptr<VideoSource> OpenTestPicture(const StreamFacts& settings, size_t frameLimit, int64_t soundUs,
                                             Motors* head = nullptr);
