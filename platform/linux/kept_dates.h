// Inside the provider: content-modification dates that were given to new files and hold while their data is
// first written.
#pragma once

#include "platform/linux/attributes.h"
#include "platform/linux/fork_table.h"
#include "platform/linux/references.h"

// Remembers the date of the new file, whose facts have just been got. -108 when memory runs out.
OSErr KeepContentDate(const Place& file);

// Remembers the dates that the new file, whose facts have just been got, is still to be given: when its fork is
// closed or SetOwedDates is called. One of the two that follow ends it. -108 when memory runs out.
OSErr KeepOwedDates(const Place& file, const FileTimes& times);

// Sets the dates that the open file is owed, unless they have been set or somebody else has changed it.
OSErr SetOwedDates(int file, const struct statx& now);

// Leaves the dates that the file is owed to its forks that are still open, if there are any.
void LetGoOfOwedDates(const struct statx& facts);

// Forgets it, because another date was set.
void ForgetContentDate(const struct statx& facts);

// Tells that a data fork is being opened for writing; `facts` are the file's. Whether its date is to hold.
bool BeginHoldingDate(const struct statx& facts);

// Tells that the fork has been used to the end; puts the date back if the fork was written and nobody else
// has changed the file since. `facts` tell of the file as it was before that; their mask is 0 when they could
// not be got.
void EndHoldingDate(OpenFork& fork, struct statx& facts);

// The system's clock in nanoseconds, as OpenFork::lastChange counts.
int64_t SystemTime();
