// The device's identity and its storage.
//
// Any thread. Protocol reference: docs/protocol.md, "System information".
#pragma once

#include <span>

#include "config/named_answer.h"

RequestHandler ProcessSysinfoReq; // 1020 -> 1021

// Both names, in the order in which they are looked for.
std::span<const NamedAnswer> SystemInformationAnswers();
