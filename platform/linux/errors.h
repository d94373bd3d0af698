// The one place where errno is read and turned into the platform's result codes.
#pragma once

#include "platform/types.h"

// The result code for an error number of the host.
OSErr ErrorFromErrno(int error);

// The result code of the system call that has just failed.
OSErr LastError();

// The same where a fork was to be opened: what the host denies is a matter of permission there (-54).
OSErr LastForkError();

// The same where a name was to be opened as a file: -43 when something else has it by now.
OSErr LastOpenError();

// The bare number of the system call that has just failed, for code that must tell "try again" or "not
// supported" from a real failure.
int LastErrorNumber();

// Makes `error` the number of the last failed call again, after clean-up that may have changed it.
void SetLastErrorNumber(int error);
