#include "config/ability_report.h"

int ProcessGetAbilityReq(int, const uint8_t*, int, uint8_t*, int* replyLen)
{
    *replyLen = 0;
    return 0;
}
std::span<const NamedAnswer> Abilities()
{
    return {};
}
