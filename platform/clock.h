// Local time.
#pragma once

#include "platform/types.h"

#pragma pack(push, 2)

// A local moment: seconds since 1 January 1904, local time, as a 48-bit number, and 1/65,536 seconds.
struct LocalDateTime {
    uint16_t highSeconds;
    uint32_t lowSeconds;
    uint16_t fraction;
};

#pragma pack(pop)

extern "C" {

// The same moment in universal time, by the rules of the local time zone for that date.
OSStatus ConvertLocalTimeToUTC(const LocalDateTime* localDateTime, UTCDateTime* utcDateTime);

} // extern "C"
