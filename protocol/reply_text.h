// A reply's JSON text, written straight into the reply buffer.
//
// What the server says stands in the code as it travels, one literal for each object, with an "@" for
// each value that is computed:
//
//     Add(&text, R"({"Address":@,"Port":@})", Quoted(address), Number(port));
//
// The compiler checks that there are as many values as places. Values are written as cJSON prints them:
// numbers as integers, texts with their quotes and escapes, bytes from 0x80 on as they are. What does not
// fit the buffer is left out, and the text remembers it: such a reply is not sent.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

struct ReplyText {
    std::span<char> buffer;
    size_t length = 0;  // characters written
    bool isCut = false; // something did not fit
};

enum class JsonKind : uint8_t { kNumber, kFlag, kQuoted, kPlain, kHex, kUpperHex };

struct JsonValue {
    JsonKind kind;
    int64_t number = 0;
    std::string_view text{};
};

constexpr JsonValue Number(int64_t value)
{
    return {.kind = JsonKind::kNumber, .number = value};
}
constexpr JsonValue Flag(bool value)
{
    return {.kind = JsonKind::kFlag, .number = value};
}
// A text; a null pointer travels as the empty text.
constexpr JsonValue Quoted(const char* text)
{
    return {.kind = JsonKind::kQuoted, .text = text != nullptr ? text : ""};
}
// JSON that is ready to travel: a literal or a piece of one.
constexpr JsonValue Plain(std::string_view json)
{
    return {.kind = JsonKind::kPlain, .text = json};
}
// The text "0x%08x", quoted; session ids and most masks.
constexpr JsonValue Hex(uint32_t value)
{
    return {.kind = JsonKind::kHex, .number = value};
}
// The text "0x%08X", quoted.
constexpr JsonValue UpperHex(uint32_t value)
{
    return {.kind = JsonKind::kUpperHex, .number = value};
}

// JSON with `places` values left open. The literal is borrowed for ever.
template <size_t places> struct JsonPattern {
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is meant to be usable as a pattern
    consteval JsonPattern(const char* literal) : json(literal)
    {
        size_t found = 0;
        for (const char c : json)
            found += c == '@' ? 1 : 0;
        if (found != places)
            AsManyValuesAsPlaces();
    }
    std::string_view json;

  private:
    static void AsManyValuesAsPlaces(); // not constexpr: using it is the compiler's error
};

void AddValues(ReplyText* text, std::string_view pattern, const JsonValue* values);

// Writes the pattern with the values in its places.
template <std::same_as<JsonValue>... Values>
void Add(ReplyText* text, JsonPattern<sizeof...(Values)> pattern, Values... values)
{
    const JsonValue list[] = {values..., JsonValue{}};
    AddValues(text, pattern.json, list);
}

// Writes the element so many times, with commas between.
void AddRepeated(ReplyText* text, std::string_view element, int times);
