// The dispatcher: finds the handler of every request, whichever way it came.
//
// Runs on the receive thread (TCP) and on the search thread (UDP), at times on both at once; it keeps
// no state.
#pragma once

#include <span>

#include "protocol/request.h"

// Calls the handler of the request's message id. An id without a handler gets no reply; the log and
// standard output then show what came.
RequestHandler ProtocolNetworkProcess;

struct RequestRow {
    uint16_t usMessageId;
    RequestHandler* handler;
};

// Every request that has a handler, in the protocol's order.
std::span<const RequestRow> Requests();
