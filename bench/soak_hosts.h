// The sibling processes of the soak's camera. Each runs as a process of its own, so that it can be stopped,
// killed and started again while the server lives.
#pragma once

#include <string>

// Runs the sibling of this name until it is killed: "parameters" (keeps its settings in the file), "media" or
// "alarms". Writes one line to standard output once it serves. Returns the exit status; 2 when there is no
// such sibling.
//
// "parameters" ends on SIGTERM, after the exchange that it is in: the server waits for ever for the answer to
// a request that a parameter host took with it.
int RunSoakHost(const std::string& name, const std::string& stateFile);
