// Ctrl-C and SIGTERM as a descriptor that a poll loop watches.
#pragma once

// From here on the first SIGINT or SIGTERM makes the returned descriptor readable; the second one ends the
// process at once, for users who will not wait. Call once. Returns -1 when the system has no descriptor
// left; poll() passes over it, and signals end the process as ever.
int CatchStopSignals();
