// The dispatcher: finds the handler of every request, whichever way it came.
//
// Runs on the receive thread (TCP) and on the search thread (UDP), at times on both at once; it keeps
// no state.
#pragma once

#include "protocol/request.h"

// Calls the handler of the request's message id. An id without a handler gets no reply; the log and
// standard output then show what came.
RequestHandler ProtocolNetworkProcess;
