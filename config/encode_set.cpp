#include "config/encode_set.h"

SetResult ApplySimplifyEncode(const cJSON*, const cJSON*)
{
    return kReply;
}
