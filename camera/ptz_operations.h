// Operations that move the camera: actions of motors and lens, the speed step, and the tours.
//
// Every action is a message to the parameter host, which drives the hardware; nobody reports how it went.
#pragma once

int Common_ControlPtz(const void* input, void* output);            // 60
int Common_SetPTZProperty(const void* input, void* output);        // 104
int Common_SetCruiseLineProperty(const void* input, void* output); // 155
// The stored points of one tour. Only tours 0 to 31 of channels 0 and 1 exist: -1 for others.
int Common_GetCruiseLineProperty(const void* input, void* output); // 156
