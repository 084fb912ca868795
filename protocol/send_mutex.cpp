#include "protocol/send_mutex.h"

RecursiveMutex g_sendMutex;

void CreateSendMutex()
{
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] { (void)MutexCreate(&g_sendMutex); }); // logs its failure itself; we go on
}
