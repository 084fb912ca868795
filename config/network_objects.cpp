#include "config/network_objects.h"

void BuildNetCommon(ReplyText* text)
{
    Add(text, "{}");
}
SetResult ApplyNetCommon(const cJSON*, const cJSON*)
{
    return kReply;
}
void BuildNetDHCP(ReplyText* text)
{
    Add(text, "[]");
}
SetResult ApplyNetDHCP(const cJSON*, const cJSON*)
{
    return kReply;
}
void BuildNetDNS(ReplyText* text)
{
    Add(text, "{}");
}
const char kNetNTP[] = "{}";
const char kOnlineUpgrade[] = "{}";
