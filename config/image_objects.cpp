#include "config/image_objects.h"

void BuildVideoColor(ReplyText* text)
{
    Add(text, "[]");
}
SetResult ApplyVideoColor(const cJSON*, const cJSON*)
{
    return kReply;
}
const char kCameraParam[] = "{}";
const char kGuiSet[] = "{}";
const char kVideoWidget[] = "[]";
