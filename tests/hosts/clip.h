// A small clip for tests: a bare H.264 stream of 64 x 48 pixels at 25 frames a second, in a file that is
// removed at the end of the scope.
#pragma once

#include <cstring>
#include <fstream>
#include <string>

#include "hosts/libav_types.h"
#include "hosts/video_encoder.h"
#include "tests/hosts/temporary_directory.h"

inline constexpr int kClipKeyFrameEvery = 10;

class Clip {
  public:
    explicit Clip(int frames)
    {
        const StreamFacts facts{kCodecH264, 64, 48, 25, 200000, kClipKeyFrameEvery};
        VideoEncoder encoder(facts, 0x40000);
        auto picture = OwnLibav(av_frame_alloc());
        picture->format = AV_PIX_FMT_YUV420P;
        picture->width = 64;
        picture->height = 48;
        CheckLibav(av_frame_get_buffer(picture.get(), 0), "picture");
        std::ofstream file(path_, std::ios::binary);
        for (int i = 0; i < frames; ++i) {
            for (int y = 0; y < 48; ++y)
                for (int x = 0; x < 64; ++x)
                    picture->data[0][y * picture->linesize[0] + x] =
                        static_cast<uint8_t>(x * 3 + y * 5 + i * 7);
            for (const int plane : {1, 2})
                memset(picture->data[plane], 128, static_cast<size_t>(picture->linesize[plane]) * 24);
            const AccessUnit unit = encoder.Encode(*picture, i % kClipKeyFrameEvery == 0);
            file.write(reinterpret_cast<const char*>(unit.bytes.data()),
                       static_cast<std::streamsize>(unit.bytes.size()));
        }
    }

    [[nodiscard]] const std::string& path() const { return path_; }

  private:
    TemporaryDirectory directory_;
    std::string path_ = directory_.File("clip.h264");
};
