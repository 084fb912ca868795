// Position queries: asks the encoder host where in a ring to read.
//
// Thread-safe: one lock is held for a whole exchange, because all readers of the process share one
// reply type and could not tell each other's answers apart otherwise. An exchange lasts until the host
// answers. The host is trusted for nothing: an answer that names another query is thrown away.
#pragma once

#include <cstdint>

#include "media/frame_source.h"

// Opens the queue, or creates it. Returns false when neither works.
[[nodiscard]] bool OpenPositionQueue();

// Throws away the answers that wait for this client type: they belong to an earlier life of it.
void DrainPositionReplies(int32_t clientType);

// The host's answer to a command about a stream; 0 when the exchange failed.
uint32_t QueryPosition(int32_t clientType, uint32_t index, uint32_t command);
