// Inside the provider: the platform's dates, the kernel's, and those of the metadata.
#pragma once

#include "platform/types.h"

#include <ctime>
#include <optional>
#include <sys/stat.h>

// The platform's date; moments that it cannot hold become its first and last.
UTCDateTime DateFromTimestamp(const statx_timestamp& time);

// The kernel's time; nothing for a date of all zeros (none was given) and for what the host's type cannot
// hold.
std::optional<timespec> TimeFromDate(const UTCDateTime& date);

// Whole seconds from the beginning of 2000; nothing when they do not fit. A date of all zeros is "never".
std::optional<int32_t> MetadataDateFromDate(const UTCDateTime& date);
UTCDateTime DateFromMetadataDate(int32_t seconds);

bool SameDate(const UTCDateTime& a, const UTCDateTime& b);
