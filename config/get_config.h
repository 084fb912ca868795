// GetConfig: a recorder reads one configuration object by its name.
//
// Any thread. Protocol reference: docs/protocol.md, "Configuration".
#pragma once

#include <span>

#include "config/named_answer.h"

RequestHandler ProcessGetConfigReq; // 1042 -> 1043

// Every name that is served, in the order in which they are tested.
std::span<const NamedAnswer> GetConfigAnswers();
