// The send mutex: held by a media sender for its whole walk over the receivers of one message, so
// that messages of the two streams never interleave.
//
// Created by the first network start and kept for the life of the process, because a sender may
// still hold it while the network stops.
#pragma once

#include "common/mutex.h"

extern RecursiveMutex g_sendMutex;

// Creates the mutex; further calls do nothing.
void CreateSendMutex();
