// What the camera can do: a recorder asks for one ability by its name. Most answers are fixed tables;
// the encoding capability and the talk format are computed from the camera's settings.
//
// Any thread. Protocol reference: docs/protocol.md, "Abilities".
#pragma once

#include <span>

#include "config/named_answer.h"

RequestHandler ProcessGetAbilityReq; // 1360 -> 1361

// Every ability, in the order in which they are tested.
std::span<const NamedAnswer> Abilities();
