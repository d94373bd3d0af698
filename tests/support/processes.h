// Processes and threads as the host sees them.
#pragma once

#include <functional>
#include <sys/types.h>

// Runs `body` in a forked child, for a minute at most; its exit status, less than 0 when a signal ended it or
// there was no child.
int RunInChild(const std::function<int()>& body);

// The same for what is right or wrong: true when it returned true there.
bool InChild(const std::function<bool()>& body);

// The exit status of a child that has been forked, less than 0 when a signal ended it or none was forked.
int ExitStatusOf(pid_t child);

// The state of a thread of this process as the kernel shows it: 'S' when it sleeps, '?' when it is gone.
char StateOf(pid_t thread);
