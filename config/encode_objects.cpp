#include "config/encode_objects.h"

void BuildAVEncEncode(ReplyText* text)
{
    Add(text, "[]");
}
void BuildSimplifyEncode(ReplyText* text)
{
    Add(text, "[]");
}
void BuildCombineEncode(ReplyText* text)
{
    Add(text, "[]");
}
const char kCombineEncodeParam[] = "[]";
