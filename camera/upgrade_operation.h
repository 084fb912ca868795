// Firmware upgrade: checks the package that somebody has put in its place and tells the main process.
#pragma once

// Returns -1 for a null input and for a package that is not for this camera.
int Common_Upgrade(const void* input, void* output); // 50
