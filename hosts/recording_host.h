// The recording host: on a camera with a memory card, the process that records on it, and that must be told
// before the camera goes down, so that it closes its files.
//
// Here it is this program again, under that process's name, with one file open on the card. Others find it
// by its name, in the list of processes as well as by killall.
#pragma once

inline constexpr char kRecordingHostName[] = "RecHost";

// The process itself, from its start until SIGTERM; returns its exit status.
int RunRecordingHost();
