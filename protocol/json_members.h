// Members of an answer as a table, in the order in which they travel.
//
// A handler lists what it sends; AddMembers turns the list into cJSON nodes. The texts and nested
// tables are borrowed for the call.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <span>

enum class JsonKind : uint8_t { kInt, kBool, kText, kObject };

struct JsonMember {
    const char* key;
    JsonKind kind;
    double number = 0;                     // kInt, kBool
    const char* text = nullptr;            // kText
    std::span<const JsonMember> members{}; // kObject
};

constexpr JsonMember Int(const char* key, int64_t value)
{
    return {.key = key, .kind = JsonKind::kInt, .number = static_cast<double>(value)};
}
constexpr JsonMember Bool(const char* key, bool value)
{
    return {.key = key, .kind = JsonKind::kBool, .number = value ? 1.0 : 0.0};
}
// A null text travels as the empty text.
constexpr JsonMember Text(const char* key, const char* value)
{
    return {.key = key, .kind = JsonKind::kText, .text = value};
}
constexpr JsonMember Object(const char* key, std::span<const JsonMember> members)
{
    return {.key = key, .kind = JsonKind::kObject, .members = members};
}

// Adds the members to the object, in order. Returns false when memory ran out.
bool AddMembers(cJSON* object, std::span<const JsonMember> members);
