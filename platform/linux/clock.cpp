// Local time, on the C library's time zone rules.
#include "platform/clock.h"

#include <ctime>

// Seconds from 1 January 1904 to 1 January 1970.
constexpr int64_t kSecondsTo1970 = 2082844800;

OSStatus ConvertLocalTimeToUTC(const LocalDateTime* localDateTime, UTCDateTime* utcDateTime) {
    if (!localDateTime || !utcDateTime) return paramErr;
    int64_t local = (int64_t{localDateTime->highSeconds} << 32) + localDateTime->lowSeconds;

    // The wall clock's fields as if they were universal time, then read again as local time.
    time_t asIfUTC = static_cast<time_t>(local - kSecondsTo1970);
    std::tm fields{};
    if (!gmtime_r(&asIfUTC, &fields)) return paramErr;
    fields.tm_isdst = -1;
    int64_t utc = int64_t{std::mktime(&fields)} + kSecondsTo1970;

    utcDateTime->highSeconds = static_cast<uint16_t>(utc >> 32);
    utcDateTime->lowSeconds = static_cast<uint32_t>(utc);
    utcDateTime->fraction = localDateTime->fraction;
    return noErr;
}
