// The encoding of the streams as recorders read it: "AVEnc.Encode", "Simplify.Encode",
// "AVEnc.CombineEncode" and "AVEnc.CombineEncodeParam".
#pragma once

#include "config/named_answer.h"

ObjectBuilder BuildAVEncEncode;
ObjectBuilder BuildSimplifyEncode;
ObjectBuilder BuildCombineEncode;
extern const char kCombineEncodeParam[];
