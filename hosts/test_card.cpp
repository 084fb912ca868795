#include "hosts/test_card.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace {

struct Colour {
    uint8_t y, u, v;
};
// White, yellow, cyan, green, magenta, red, blue and black at three quarters of their strength.
constexpr Colour kBars[] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                            {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128}};
constexpr Colour kGround = {40, 128, 128};
constexpr Colour kBox = {235, 128, 128};

// The card from top to bottom, in sixteenths of its height: the scene, noise (little of it: encoders labour
// at it), the lane of the box.
constexpr int kParts = 16;
constexpr int kSceneBottom = 11;
constexpr int kLaneTop = 12;
constexpr int kBoxTop = 13;
constexpr int kBoxParts = 2;

// The scene, in degrees
constexpr double kSceneDegrees = 60; // in sight at zoom 1
constexpr double kLineDegrees = 10;
constexpr double kLineThickness = 0.25;
constexpr int kMostBars = 32; // to each side: four times around the eight colours, more than the head turns
constexpr int kMostLines = 12;

constexpr int kGlyphColumns = 5;
constexpr int kGlyphRows = 7;
struct Glyph {
    char sign;
    std::array<uint8_t, kGlyphRows> rows; // a bit for each column, the leftmost one highest
};
constexpr Glyph kFont[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'x', {0x00, 0x00, 0x11, 0x0A, 0x04, 0x0A, 0x11}}, {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}}, {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}},
    {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {'+', {0x00, 0x04, 0x04, 0x1F, 0x04, 0x04, 0x00}}, {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}},
    {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
};

struct Area {
    int left, top, width, height;
};

// Fills the part of the area that lies inside the picture; odd borders go to the left and up.
void Fill(AVFrame* picture, Area area, Colour colour)
{
    const int left = std::clamp(area.left, 0, picture->width);
    const int top = std::clamp(area.top, 0, picture->height);
    const int right = std::clamp(area.left + area.width, left, picture->width);
    const int bottom = std::clamp(area.top + area.height, top, picture->height);
    const uint8_t values[] = {colour.y, colour.u, colour.v};
    for (int plane = 0; plane < 3; ++plane) {
        const int halves = plane == 0 ? 0 : 1; // chroma has half the size
        for (int row = top >> halves; row < bottom >> halves; ++row)
            memset(picture->data[plane] + ptrdiff_t{row} * picture->linesize[plane] + (left >> halves),
                   values[plane], static_cast<size_t>((right >> halves) - (left >> halves)));
    }
}

const Glyph* FindGlyph(char sign)
{
    const auto* const found = std::find_if(std::begin(kFont), std::end(kFont),
                                           [sign](const Glyph& glyph) { return glyph.sign == sign; });
    return found == std::end(kFont) ? nullptr : found;
}

void DrawGlyph(AVFrame* picture, const Glyph& glyph, int left, int top, int dot)
{
    for (int row = 0; row < kGlyphRows; ++row)
        for (int column = 0; column < kGlyphColumns; ++column)
            if ((glyph.rows[static_cast<size_t>(row)] >> (kGlyphColumns - 1 - column) & 1) != 0)
                Fill(picture, {left + column * dot, top + row * dot, dot, dot}, kBox);
}

} // namespace

TestCard::TestCard(int width, int height)
    : scene_(MakePicture(AV_PIX_FMT_YUV420P, width, height)),
      picture_(MakePicture(AV_PIX_FMT_YUV420P, width, height))
{
    Fill(scene_.get(), {0, 0, width, height}, kGround);
    DrawScene();
}

// From left to right the bars that begin in sight, and across them the level lines.
void TestCard::DrawScene()
{
    constexpr int kCount = std::size(kBars);
    constexpr double kBarDegrees = kSceneDegrees / kCount;
    const int width = scene_->width;
    const int height = scene_->height * kSceneBottom / kParts;
    const double scale = width / kSceneDegrees * view_.zoom; // pixels a degree
    const auto column = [&](int bar) {
        return static_cast<int>(std::lround(width / 2.0 + (bar * kBarDegrees - view_.pan) * scale));
    };
    const auto row = [&](int line) {
        return static_cast<int>(std::lround(height / 2.0 + (view_.tilt - line * kLineDegrees) * scale));
    };
    for (int bar = -kMostBars; bar < kMostBars; ++bar)
        if (const int left = std::max(0, column(bar)), right = std::min(width, column(bar + 1)); left < right)
            Fill(scene_.get(), {left, 0, right - left, height},
                 kBars[(bar + kMostBars + kCount / 2) % kCount]);
    const int thickness = std::max(2, static_cast<int>(std::lround(kLineThickness * scale)));
    for (int line = -kMostLines; line <= kMostLines; ++line)
        if (const int top = row(line) - thickness / 2; top > -thickness && top < height)
            Fill(scene_.get(), {0, top, width, std::min(thickness, height - top)},
                 line == 0 ? kBox : kGround);
}

const AVFrame& TestCard::Draw(int64_t number, const HeadPosition& view, std::string_view text)
{
    if (view != view_) {
        view_ = view;
        DrawScene();
    }
    CheckLibav(av_frame_make_writable(picture_.get()), "picture");
    CheckLibav(av_frame_copy(picture_.get(), scene_.get()), "picture");
    DrawNoise(number);
    DrawBox(number);
    DrawText(text);
    return *picture_;
}

// The same for the same number, and different from frame to frame.
void TestCard::DrawNoise(int64_t number)
{
    constexpr uint8_t kMiddle = 96;
    constexpr int kStrength = 6; // bits
    uint32_t random = static_cast<uint32_t>(number) * 2654435761U + 1;
    for (int row = picture_->height * kSceneBottom / kParts; row < picture_->height * kLaneTop / kParts;
         ++row) {
        uint8_t* const pixels = picture_->data[0] + ptrdiff_t{row} * picture_->linesize[0];
        for (int column = 0; column < picture_->width; ++column) {
            random = random * 1664525U + 1013904223U;
            pixels[column] = static_cast<uint8_t>(kMiddle + (random >> (32 - kStrength)));
        }
    }
}

void TestCard::DrawBox(int64_t number)
{
    const int height = picture_->height;
    const int size = std::max(2, height * kBoxParts / kParts);
    const int step = std::max(2, picture_->width / 64);
    const auto left = static_cast<int>(number * step % picture_->width);
    Fill(picture_.get(), {left, height * kBoxTop / kParts, size, size}, kBox);
}

void TestCard::DrawText(std::string_view text)
{
    const int dot = std::max(2, picture_->height / 90 & ~1);
    const int margin = 2 * dot;
    Area cursor{margin, margin, (kGlyphColumns + 1) * dot, (kGlyphRows + 2) * dot};
    for (const char sign : text) {
        if (sign == '\n') {
            cursor.left = margin;
            cursor.top += cursor.height;
            continue;
        }
        Fill(picture_.get(), {cursor.left - dot, cursor.top - dot, cursor.width + dot, cursor.height},
             kGround);
        if (const Glyph* const glyph = FindGlyph(sign))
            DrawGlyph(picture_.get(), *glyph, cursor.left, cursor.top, dot);
        cursor.left += cursor.width;
    }
}
