#include "config/event_objects.h"

void BuildMotionDetect(ReplyText* text)
{
    Add(text, "{}");
}
SetResult ApplyMotionDetect(const cJSON*, const cJSON*)
{
    return kReply;
}
const char kLocalAlarm[] = "{}";
const char kAlarmOut[] = "[]";
const char kRecord[] = "{}";
const char kStorageSnapshot[] = "{}";
const char kStoragePosition[] = "{}";
