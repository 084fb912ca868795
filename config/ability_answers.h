// Abilities that are the same on every camera of this model.
//
// The member names are the protocol's, with its spellings.
#pragma once

#include "config/named_answer.h"

extern const char kMultiLanguage[];
extern const char kBlindCapability[];
extern const char kSupportExtRecord[];
extern const char kPtzControl[];
extern const char kSystemFunction[];
extern const char kAhdEncodeL[];
extern const char kMotionArea[];
extern const char kMultiVstd[];
extern const char kCameraAbility[];

// Lists of 32 encoders
ObjectBuilder BuildAVEncEncodeStaticParam; // all alike
ObjectBuilder BuildEncodeStaticParam;      // only the first one is in use
