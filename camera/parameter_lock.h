// The send lock: one exchange of this process with the parameter host at a time.
//
// It exists from SysDrvInit to SysDrvExit and is held from the copy of a value until its reply has been
// received. Every failure prints its line on standard error and returns -1. DestroySem waits for the
// present holder; nobody may begin to wait for the lock while it runs.
#pragma once

// Creates the lock unless there is one.
int Sem_Creat();
bool SemExists();
int SemWait();
int SemRelease();
int DestroySem();
