// The picture that a bench camera shows when it films nothing: a crop of a scene of colour bars that goes
// all around the camera, a box that moves a step with every frame, a strip of noise that gives a bit rate
// something to do, and lines of text.
//
// The scene is 60 degrees wide at zoom 1: one turn of the eight bars. Level lines cross it every ten
// degrees, the horizon in white.
#pragma once

#include <cstdint>
#include <string_view>

#include "hosts/libav_types.h"
#include "hosts/motors.h"

class TestCard {
  public:
    TestCard(int width, int height);

    // Draws the card of that frame number as it is seen from the position. Of the text, digits and the few
    // letters of the font are drawn, the rest is blank; '\n' begins a new line. The picture stays until the
    // next call.
    const AVFrame& Draw(int64_t number, const HeadPosition& view, std::string_view text);

  private:
    void DrawScene();
    void DrawNoise(int64_t number);
    void DrawBox(int64_t number);
    void DrawText(std::string_view text);

    LibavOwner<AVFrame> scene_; // as it is seen from `view_`
    HeadPosition view_;
    LibavOwner<AVFrame> picture_;
};
