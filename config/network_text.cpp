#include "config/network_text.h"

uint32_t IpTextToNumber(const char*)
{
    return 0;
}
void HexTextToIpText(const char*, char* dotted, size_t)
{
    dotted[0] = 0;
}
bool IsValidHostOrIp(const char*)
{
    return false;
}
