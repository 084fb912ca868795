// Alarm push: tells every subscribed connection when motion is seen and when it has ended.
//
// The camera layer's polling threads run the callback, once a second while an alarm lasts. The walk over
// the receivers holds their connections, so that a socket's number stays theirs, but no lock while it
// waits for them; a receiver that takes nothing does not delay the others. A receiver that also carries
// media gets its alarm between two media messages, under the send mutex.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t kAlarmBytes = 1024; // header and body of any alarm message

// Alarms are pushed between start and stop; the start registers the callback with the camera layer.
// What the callback has begun when the stop comes, it finishes.
void StartAlarmPush();
void StopAlarmPush();

// Called by the camera layer: the kind of callback, and the alarm's state twice.
void AlarmCallbackFunc(uint32_t kind, uint32_t state, uint32_t sameState);

// Writes the message about the state (1 started, 0 ended, others without a status) without the fields
// that depend on the receiver. Returns its bytes; 0 for a kind that is not sent.
size_t ProcessAlarmReq(uint32_t kind, uint32_t state, uint8_t (&message)[kAlarmBytes]);

// Sends the message to every subscriber that is writable within 50 ms, under its own session id and
// sequence number, in one send. A receiver that fails is removed; one that is not writable misses the
// message. Returns 0.
int SendAlarmReq(uint8_t* message, size_t length);
