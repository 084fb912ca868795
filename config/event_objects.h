// What the camera does on events and where it records. Only motion detection is a setting of the camera;
// the other answers tell a recorder that nothing is recorded here and no action linked to an alarm.
#pragma once

#include "config/named_answer.h"
#include "config/set_config.h"

ObjectBuilder BuildMotionDetect; // "Detect.MotionDetect.[0]"
ConfigApplier ApplyMotionDetect;
ObjectBuilder BuildLocalAlarm;        // "Alarm.LocalAlarm.[0]"
extern const char kAlarmOut[];        // "Alarm.AlarmOut"
ObjectBuilder BuildRecord;            // "Record.[0]"
ObjectBuilder BuildStorageSnapshot;   // "Storage.Snapshot.[0]"
extern const char kStoragePosition[]; // "Storage.StoragePosition"
