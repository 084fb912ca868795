// What the encoders can do: sizes, codecs and sound of each stream, from the camera's settings and the
// maker's resolution combinations.
#pragma once

#include "config/named_answer.h"

ObjectBuilder BuildEncodeCapability;
ObjectBuilder BuildTalkAudioFormat;
