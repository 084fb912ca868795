// SetConfig: a recorder changes one configuration object by its name.
//
// Any thread; a set waits for the parameter host's answers. Protocol reference: docs/protocol.md,
// "Configuration".
#pragma once

#include <cstdint>
#include <span>

#include "protocol/request.h"

enum class SetResult : uint8_t {
    kReply,   // Ret 100, whatever was changed, skipped or missing
    kNoReply, // the request ends without a word
};
using enum SetResult;

// Applies the object that the request carries; `object` is the member named like the row, or null when
// the request lacks it, and `request` the whole body.
using ConfigApplier = SetResult(const cJSON* request, const cJSON* object);

struct SettableObject {
    const char* name;
    ConfigApplier* apply;
};

RequestHandler ProcessSetConfigReq; // 1040 -> 1041

// Every name that can be set, in the order in which they are tested.
std::span<const SettableObject> SettableObjects();
