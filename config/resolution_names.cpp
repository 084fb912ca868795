#include "config/resolution_names.h"

const char* GetResolutionName(int32_t, int32_t)
{
    return nullptr;
}
int IsResolutionSupported(int32_t, const char*)
{
    return -1;
}
uint32_t ResolutionCombo(int32_t)
{
    return 0;
}
