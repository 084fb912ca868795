#include "common/shared_wait.h"

#include <algorithm>

#include "common/clock.h"
#include "common/mutex.h"

namespace {

constexpr int64_t kShortestUs = 1000; // between two rounds of looks

struct Waiter {
    Look* look;
    void* argument;
    int64_t periodUs;
    uint32_t most;
    int64_t dueUs;
    uint32_t made = 0;
    bool isOver = false;
    Condition turn{}; // over, or to lead
    Waiter* next = nullptr;
};

Mutex g_mutex;
Waiter* g_waiters GUARDED_BY(g_mutex) = nullptr;
Waiter* g_leader GUARDED_BY(g_mutex) = nullptr; // sleeps, without the mutex, until g_wakeUs
int64_t g_wakeUs GUARDED_BY(g_mutex) = 0;
int64_t g_lastRoundUs GUARDED_BY(g_mutex) = 0;

// Null when nobody waits any more.
Waiter* FirstDue() REQUIRES(g_mutex)
{
    Waiter* first = nullptr;
    for (Waiter* waiter = g_waiters; waiter != nullptr; waiter = waiter->next)
        if (!waiter->isOver && (first == nullptr || waiter->dueUs < first->dueUs))
            first = waiter;
    return first;
}

// Who is due before the leader wakes up leads in its place, and so does who looks more often, because the
// leader learns first what it looks for. The former leader finds out when it wakes up.
void Join(Waiter* waiter) REQUIRES(g_mutex)
{
    waiter->next = g_waiters;
    g_waiters = waiter;
    if (g_leader == nullptr || waiter->dueUs < g_wakeUs || waiter->periodUs < g_leader->periodUs)
        g_leader = waiter;
}

void Leave(Waiter* waiter) REQUIRES(g_mutex)
{
    Waiter** link = &g_waiters;
    while (*link != waiter)
        link = &(*link)->next;
    *link = waiter->next;
    if (g_leader != waiter)
        return;
    g_leader = FirstDue();
    if (g_leader != nullptr)
        g_leader->turn.Signal();
}

void MakeDueLooks(int64_t nowUs) REQUIRES(g_mutex)
{
    g_lastRoundUs = nowUs;
    for (Waiter* waiter = g_waiters; waiter != nullptr; waiter = waiter->next) {
        if (waiter->isOver || waiter->dueUs > nowUs)
            continue;
        waiter->dueUs = nowUs + waiter->periodUs;
        ++waiter->made;
        waiter->isOver = waiter->look(waiter->argument) || waiter->made == waiter->most;
        if (waiter->isOver && waiter != g_leader)
            waiter->turn.Signal();
    }
}

// Sleeps until somebody is due. Whoever has taken the lead meanwhile makes the looks.
void Lead(const Waiter* self) REQUIRES(g_mutex)
{
    const int64_t wakeUs = std::max(FirstDue()->dueUs, g_lastRoundUs + kShortestUs);
    g_wakeUs = wakeUs;
    g_mutex.Unlock();
    SleepUntilUs(wakeUs);
    g_mutex.Lock();
    if (g_leader == self)
        MakeDueLooks(MonotonicUs());
}

} // namespace

uint32_t LookEvery(uint32_t periodMs, uint32_t most, Look* look, void* argument)
{
    const int64_t periodUs = int64_t{periodMs} * 1000;
    Waiter self{.look = look,
                .argument = argument,
                .periodUs = periodUs,
                .most = most,
                .dueUs = MonotonicUs() + periodUs};
    const Locked lock(g_mutex);
    Join(&self);
    while (!self.isOver) {
        if (g_leader == &self)
            Lead(&self);
        else
            self.turn.Wait(g_mutex);
    }
    Leave(&self);
    return self.made;
}
