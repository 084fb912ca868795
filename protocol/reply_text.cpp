#include "protocol/reply_text.h"

#include <algorithm>
#include <charconv>

namespace {

void AddPlain(ReplyText* text, std::string_view json)
{
    const size_t room = text->buffer.size() - text->length;
    text->isCut = text->isCut || json.size() > room;
    if (text->isCut)
        return;
    std::copy(json.begin(), json.end(), text->buffer.begin() + static_cast<ptrdiff_t>(text->length));
    text->length += json.size();
}

void AddNumber(ReplyText* text, int64_t value)
{
    char digits[24];
    const std::to_chars_result end = std::to_chars(std::begin(digits), std::end(digits), value);
    AddPlain(text, {digits, end.ptr});
}

void AddHex(ReplyText* text, uint32_t value, const char (&digits)[17])
{
    char quoted[] = R"("0x00000000")";
    for (int digit = 0; digit < 8; ++digit)
        quoted[3 + digit] = digits[value >> (28 - 4 * digit) & 0xF];
    AddPlain(text, {quoted, sizeof quoted - 1});
}

// The letter behind the backslash of a short escape, or 0.
char ShortEscape(char c)
{
    constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    const size_t place = kEscaped.find(c);
    return place != std::string_view::npos ? kLetters[place] : '\0';
}

void AddEscape(ReplyText* text, char c)
{
    constexpr char kDigits[] = "0123456789abcdef";
    if (const char letter = ShortEscape(c)) {
        const char escape[] = {'\\', letter};
        AddPlain(text, {escape, sizeof escape});
        return;
    }
    const char escape[] = {'\\', 'u', '0', '0', kDigits[c >> 4 & 0xF], kDigits[c & 0xF]};
    AddPlain(text, {escape, sizeof escape});
}

void AddQuoted(ReplyText* text, std::string_view value)
{
    const auto needsEscape = [](char c) { return static_cast<uint8_t>(c) < ' ' || c == '"' || c == '\\'; };
    AddPlain(text, "\"");
    while (!value.empty()) {
        const auto* const end = std::find_if(value.begin(), value.end(), needsEscape);
        AddPlain(text, {value.begin(), end});
        if (end == value.end())
            break;
        AddEscape(text, *end);
        value = {end + 1, value.end()};
    }
    AddPlain(text, "\"");
}

void AddValue(ReplyText* text, const JsonValue& value)
{
    switch (value.kind) {
    case JsonKind::kNumber:
        return AddNumber(text, value.number);
    case JsonKind::kFlag:
        return AddPlain(text, value.number != 0 ? "true" : "false");
    case JsonKind::kQuoted:
        return AddQuoted(text, value.text);
    case JsonKind::kPlain:
        return AddPlain(text, value.text);
    case JsonKind::kHex:
        return AddHex(text, static_cast<uint32_t>(value.number), "0123456789abcdef");
    case JsonKind::kUpperHex:
        return AddHex(text, static_cast<uint32_t>(value.number), "0123456789ABCDEF");
    }
}

} // namespace

void AddValues(ReplyText* text, std::string_view pattern, const JsonValue* values)
{
    for (size_t place = pattern.find('@'); place != std::string_view::npos; place = pattern.find('@')) {
        AddPlain(text, pattern.substr(0, place));
        AddValue(text, *values++);
        pattern.remove_prefix(place + 1);
    }
    AddPlain(text, pattern);
}

void AddRepeated(ReplyText* text, std::string_view element, int times)
{
    for (int i = 0; i < times; ++i) {
        AddPlain(text, i > 0 ? "," : "");
        AddPlain(text, element);
    }
}
