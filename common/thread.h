// Starting threads: one stack size for all of them and a name that `ps -L` and debuggers show.
#pragma once

#include <pthread.h>

#include <cstddef>

// The handlers' threads need most: a body that nests as deep as the parser goes (1000 levels, each a few
// calls of it) takes 105 KiB on 64 bits, and whatever the machine, it must fit in four times. Only what is
// touched costs memory.
inline constexpr size_t kThreadStackBytes = size_t{1024} * 1024;

using ThreadBody = void*(void* argument);

// Starts a joinable thread; the name is cut to 15 characters. Returns 0 or the error number, and
// stores the handle only on success.
[[nodiscard]] int StartThread(const char* name, ThreadBody* body, void* argument, pthread_t* handle);

// Starts a thread that nobody waits for. Returns 0 or the error number.
[[nodiscard]] int StartDetachedThread(const char* name, ThreadBody* body, void* argument);
