// The configuration objects of the protocol: under which name each is read, and what a set does with it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

enum class SetEffect : uint8_t {
    kNone,    // read-only: a set is not even answered
    kDropped, // a set is answered and changes nothing
    kApplied,
};

struct ConfigName {
    const char* name;    // as it is read
    const char* answer;  // the member of the reply that carries the object
    const char* setName; // null when it is read-only
    SetEffect effect;
    bool isList; // the object travels as the first of a list, of which a set reads only that one
};

// In the camera's order.
std::span<const ConfigName> ConfigNames();
// By either of its names, letter by letter; null when there is none.
const ConfigName* FindConfigName(std::string_view name);
