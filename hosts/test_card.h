// The picture that a bench camera shows when it films nothing: colour bars, a box that moves a step with
// every frame, a strip of noise that gives a bit rate something to do, and lines of text.
#pragma once

#include <cstdint>
#include <string_view>

#include "hosts/libav_types.h"

class TestCard {
  public:
    TestCard(int width, int height);

    // Draws the card of that frame number. Of the text, digits and the few letters of the font are drawn,
    // the rest is blank; '\n' begins a new line. The picture stays until the next call.
    const AVFrame& Draw(int64_t number, std::string_view text);

  private:
    void DrawNoise(int64_t number);
    void DrawBox(int64_t number);
    void DrawText(std::string_view text);

    LibavOwner<AVFrame> bars_;
    LibavOwner<AVFrame> picture_;
};
