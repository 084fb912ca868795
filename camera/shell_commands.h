// Running the shell, which this file alone does. Only texts of this program are run, and the compiler sees to
// it: a ShellCommand is made of what is known when the program is compiled, so nothing from outside gets
// here.
//
// All wait for their own child and no other, so any thread may call them.
#pragma once

#include <cstdio>

class ShellCommand {
  public:
    // NOLINTNEXTLINE: a literal is to be given where a command is wanted
    consteval ShellCommand(const char* text) : text_(text) {}
    [[nodiscard]] const char* text() const { return text_; }

  private:
    const char* text_;
};

// Returns 0 whatever the command's exit status; -1 for a null text or when no child could be made.
int Command_System(ShellCommand command);
// Returns the child's raw wait status, or -1.
int Common_DoSystem(ShellCommand command);
// Starts the command, whose output is then read; null when that failed. CloseShell() waits for its end.
FILE* OpenShell(ShellCommand command);
void CloseShell(FILE* output);
