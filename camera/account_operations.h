// The camera's accounts, as the firmware keeps them. Recorders do not log in with them.
#pragma once

int Common_GetUsers(const void* input, void* list);    // 44
int Common_CreateUser(const void* list, void* output); // 45
int Common_SetUser(const void* list, void* output);    // 46
int Common_DelUser(const void* list, void* output);    // 47
