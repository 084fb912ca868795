// Operations on the device as a whole: its identity, its restart, the return to the factory settings.
//
// They succeed even when the parameter host or the shell does not. Any thread.
#pragma once

int Common_GetDeviceInformation(const void* input, void* information); // 11
int Common_Reboot(const void* input, void* output);                    // 48
// Mode byte 0 removes the settings' files and restarts; any other asks the parameter host to restore its
// defaults.
int Common_FactoryDefault(const void* mode, void* output); // 49

// 0 when the recording process must be told before a restart, else -1.
int CheckSendSignal();
// Bytes of the process listing of the recording process: 0 when it does not run, -1 when nobody can say.
int CheckRecHostStatus();

// Restarts the device by force, 4 s after the latest call. Nothing can stop it.
void ParamChangeToRestart();
