// What every message that the server sends must be like.
#pragma once

#include <cstdint>
#include <span>

// Ends the program unless the bytes are one whole message of the server, with a JSON body that names the
// session.
void CheckMessage(std::span<const uint8_t> message);
// The same, and the reply must be one to this request.
void CheckReply(std::span<const uint8_t> request, std::span<const uint8_t> reply);
