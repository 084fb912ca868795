// A small clip for tests: a bare H.264 stream of 64 x 48 pixels, or of another height, at 25 frames a second,
// in a file that is removed at the end of the scope.
#pragma once

#include <fstream>
#include <string>

#include "hosts/libav_types.h"
#include "hosts/video_encoder.h"
#include "tests/temporary_directory.h"

inline constexpr int kClipKeyFrameEvery = 10;

class Clip {
  public:
    explicit Clip(int frames, uint16_t height = 48)
    {
        VideoEncoder encoder({kCodecH264, 64, height, 25, 200000, kClipKeyFrameEvery}, 0x40000);
        auto picture = OwnLibav(av_frame_alloc());
        picture->format = AV_PIX_FMT_GRAY8;
        picture->width = 64;
        picture->height = height;
        CheckLibav(av_frame_get_buffer(picture.get(), 0), "picture");
        std::ofstream file(path_, std::ios::binary);
        for (int i = 0; i < frames; ++i) {
            for (int at = 0; at < picture->linesize[0] * height; ++at)
                picture->data[0][at] = static_cast<uint8_t>(at * 3 + at / 64 * 5 + i * 7);
            const AccessUnit unit = encoder.Encode(*picture, i % kClipKeyFrameEvery == 0);
            file << std::string(unit.bytes.begin(), unit.bytes.end());
        }
    }

    [[nodiscard]] const std::string& path() const { return path_; }

  private:
    TemporaryDirectory directory_;
    std::string path_ = directory_.File("clip.h264");
};
