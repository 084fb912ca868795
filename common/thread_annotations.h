// Clang's thread-safety attributes, empty under other compilers. The clang build checks them.
#pragma once

#if defined(__clang__)
#define VELMORA_ATTRIBUTE(x) __attribute__((x))
#else
#define VELMORA_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) VELMORA_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY VELMORA_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(lock) VELMORA_ATTRIBUTE(guarded_by(lock))
#define REQUIRES(...) VELMORA_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) VELMORA_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) VELMORA_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) VELMORA_ATTRIBUTE(release_capability(__VA_ARGS__))
#define EXCLUDES(...) VELMORA_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS VELMORA_ATTRIBUTE(no_thread_safety_analysis)
