// The two ways in which the server waits on the system outside: a shell command and a sleep.
#pragma once

// Runs a command line through the system shell and waits for it; returns its wait status, -1 when it could not run.
int RunShellCommand(const char* command_line);

void SleepMicroseconds(unsigned microseconds);
