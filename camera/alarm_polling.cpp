#include "camera/alarm_polling.h"

#include <atomic>

#include "camera/custom_tools.h"
#include "common/clock.h"
#include "common/inifile.h"
#include "common/log.h"
#include "common/thread.h"

namespace {

constexpr uint32_t kPollMs = 1000;
constexpr uint32_t kMainSource = 2; // whose status most callbacks are told
constexpr uint32_t kParitySlot = 1; // watches several sources and tells their parity
constexpr uint32_t kParitySources[] = {0, 2, 3};
constexpr uint32_t kRtpSlot = 5; // polled only when the maker's file enables it

std::atomic<AlarmCallback*> g_callbacks[kAlarmSlots];
std::atomic<bool> g_pollingStarted{false};

bool RtpAlarmEnabled()
{
    return read_profile_int(kCustomToolsSection, "RtpAlarmEnable", 0, kCustomToolsFile) == 1;
}

void* PollingThread(void* slot)
{
    AlarmPoll poll{static_cast<uint32_t>(reinterpret_cast<uintptr_t>(slot)), false, 0};
    for (;;) {
        AlarmRecord record;
        if (AlarmDataRead(&record) == 0)
            PollAlarmSlot(record, &poll);
        SleepMs(kPollMs);
    }
}

void StartPolling(uint32_t slot)
{
    void* const argument = reinterpret_cast<void*>(static_cast<uintptr_t>(slot));
    if (const int error = StartDetachedThread("AlarmPolling", PollingThread, argument))
        LogTrace("%s %d: no polling thread for alarm slot %d, error %d\n", __func__, __LINE__, slot, error);
}

void StartFirstPolling()
{
    (void)libAlarmProcessInit(); // without a block every poll logs that and goes on
    StartPolling(0);
    StartPolling(kParitySlot);
    if (RtpAlarmEnabled())
        StartPolling(kRtpSlot);
}

// What a slot watches: one source, or several in the parity slot.
struct WatchedStates {
    bool anyAlarm;
    bool anyNonZero;
};

WatchedStates ReadStates(const AlarmRecord& record, uint32_t slot)
{
    if (slot != kParitySlot) {
        const uint32_t state = record.source[kMainSource].ulStatus;
        return {state == 1, state != 0};
    }
    WatchedStates states{};
    for (const uint32_t source : kParitySources) {
        states.anyAlarm |= record.source[source].ulStatus == 1;
        states.anyNonZero |= record.source[source].ulStatus != 0;
    }
    return states;
}

} // namespace

void ClearAlarmCallbacks()
{
    for (std::atomic<AlarmCallback*>& callback : g_callbacks)
        callback.store(nullptr);
}

int Common_SetAlarmCallback(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const AlarmRegistration& registration = *static_cast<const AlarmRegistration*>(input);
    if (registration.ulType >= kAlarmSlots)
        return kCameraFailed;
    g_callbacks[registration.ulType].store(registration.callback);
    if (!g_pollingStarted.exchange(true))
        StartFirstPolling();
    StartPolling(kCallbackVelmora);
    return kCameraOk;
}

void PollAlarmSlot(const AlarmRecord& record, AlarmPoll* poll)
{
    const WatchedStates states = ReadStates(record, poll->ulSlot);
    const uint32_t mainState = record.source[kMainSource].ulStatus;
    const bool ended = !states.anyAlarm && poll->wasNonZero;
    poll->wasNonZero = states.anyNonZero;
    AlarmCallback* const callback = g_callbacks[poll->ulSlot].load();
    if (callback == nullptr)
        return;
    if (states.anyAlarm) {
        poll->ulCounter++;
        const uint32_t told = poll->ulSlot == kParitySlot ? poll->ulCounter % 2 : mainState;
        callback(kAlarmCallbackKind, told, told);
    } else if (ended) {
        poll->ulCounter = 0;
        callback(kAlarmCallbackKind, mainState, mainState);
    }
}
