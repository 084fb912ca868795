#include "config/system_information.h"

int ProcessSysinfoReq(int, const uint8_t*, int, uint8_t*, int* replyLen)
{
    *replyLen = 0;
    return 0;
}
