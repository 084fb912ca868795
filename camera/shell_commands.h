// Running the shell. Only fixed texts of this program are run; nothing that came from outside reaches it.
//
// Both wait for their own child and no other, so any thread may call them.
#pragma once

// Returns 0 whatever the command's exit status; -1 for a null text or when no child could be made.
int Command_System(const char* command);
// Returns the child's raw wait status, or -1.
int Common_DoSystem(const char* command);
