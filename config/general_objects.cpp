#include "config/general_objects.h"

void BuildCorrespondent(ReplyText* text)
{
    Add(text, "{}");
}
void BuildTimeZone(ReplyText* text)
{
    Add(text, "{}");
}
SetResult ApplyTimeZone(const cJSON*, const cJSON*)
{
    return kReply;
}
const char kGeneralGeneral[] = "{}";
const char kGeneralLocation[] = "{}";
const char kAutoMaintain[] = "{}";
const char kExUserMap[] = "{}";
