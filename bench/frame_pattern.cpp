#include "bench/frame_pattern.h"

#include <cerrno>
#include <ctime>
#include <vector>

#include "media/media_layout.h"

namespace {

constexpr size_t kStarts = 0x10000; // frames begin at different places of the same noise

std::vector<uint8_t> MakeNoise()
{
    std::vector<uint8_t> noise(kStarts + kMainFrameBytes);
    uint64_t state = 88172645463325252ULL; // xorshift
    for (uint8_t& byte : noise) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<uint8_t>(state >> 32);
    }
    return noise;
}

} // namespace

bool IsKeyFrame(const FramePattern& pattern, uint64_t number)
{
    return number % pattern.gopFrames == 0;
}

uint32_t FrameBytes(const FramePattern& pattern, uint64_t number)
{
    const double gopBytes = pattern.bitsPerSecond / 8.0 * pattern.gopFrames / pattern.framesPerSecond;
    const uint32_t others = pattern.gopFrames - 1;
    const double mean = gopBytes / (others + pattern.keyFrameRatio);
    double bytes = mean * pattern.keyFrameRatio;
    if (!IsKeyFrame(pattern, number)) {
        // Visits every step of an even range once a group, in an order that looks random.
        const uint64_t step = (number % pattern.gopFrames - 1) * 29 % others;
        bytes = mean * (0.6 + 0.8 * static_cast<double>(step) / (others - 1));
    }
    return static_cast<uint32_t>(bytes) / 4 * 4;
}

FramePrefix MakePrefix(const FramePattern& pattern, uint64_t number, int64_t publishedNs)
{
    const bool key = IsKeyFrame(pattern, number);
    return {.ucNal = {0, 0, 0, 1, static_cast<uint8_t>(key ? 32 << 1 : 1 << 1), 1, 0, 0},
            .ullNumber = number,
            .llPublishedNs = publishedNs};
}

FramePrefix MakeH264Prefix(const FramePattern& pattern, uint64_t number, int64_t publishedNs)
{
    constexpr uint8_t kIdrSlice = 0x65, kOtherSlice = 0x41; // NAL headers
    FramePrefix prefix = MakePrefix(pattern, number, publishedNs);
    const uint32_t nalBytes = FrameBytes(pattern, number) - 4;
    for (size_t byte = 0; byte < 4; ++byte)
        prefix.ucNal[byte] = static_cast<uint8_t>(nalBytes >> (24 - 8 * byte));
    prefix.ucNal[4] = IsKeyFrame(pattern, number) ? kIdrSlice : kOtherSlice;
    return prefix;
}

const uint8_t* FrameTail(uint64_t number, size_t offset)
{
    static const std::vector<uint8_t> noise = MakeNoise();
    return noise.data() + number * 4099 % kStarts + offset;
}

int64_t MonotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void SleepUntilNs(int64_t monotonicNs)
{
    const timespec until{.tv_sec = static_cast<time_t>(monotonicNs / 1000000000),
                         .tv_nsec = static_cast<long>(monotonicNs % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}
