#include "common/thread.h"

#include <cstdio>

int StartThread(const char* name, ThreadBody* body, void* argument, pthread_t* handle)
{
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes))
        return error;
    pthread_attr_setstacksize(&attributes, kThreadStackBytes);
    pthread_t started{};
    const int error = pthread_create(&started, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    if (error != 0)
        return error;
    char shortName[16]; // the kernel's limit
    snprintf(shortName, sizeof shortName, "%s", name);
    (void)pthread_setname_np(started, shortName); // a name is a convenience
    *handle = started;
    return 0;
}

int StartDetachedThread(const char* name, ThreadBody* body, void* argument)
{
    pthread_t handle{};
    if (const int error = StartThread(name, body, argument, &handle))
        return error;
    (void)pthread_detach(handle); // it runs, whatever this says
    return 0;
}
