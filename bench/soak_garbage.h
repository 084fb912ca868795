// What no recorder sends. The camera must take it, close nothing of anybody else's and forget it.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/connection.h"
#include "recorder/discovery.h"

// Sends bytes that follow from the value on a connection of their own, then ends it and waits until the
// camera has closed it too. Throws Failure when the camera does not.
void SendGarbage(const HostPort& camera, uint32_t value);
void SendGarbageDatagrams(SearchSocket& socket, uint32_t value);
// Sends one request that the camera does not know, in the same way.
void SendUnanswered(const HostPort& camera, uint16_t id, const std::string& body);
