// Dates: the platform counts 48-bit seconds from 1904 and 1/65,536 seconds, the kernel 64-bit seconds from
// 1970 and nanoseconds, the metadata 32-bit seconds from 2000.
//
// Turning a kernel time into a date rounds down and turning it back gives the first nanosecond of the same
// fraction, so a date survives any number of copies and is never later than its source.
#include "platform/linux/dates.h"

#include "platform/linux/appledouble.h"

#include <limits>

constexpr int64_t k1904To1970 = 2082844800;
constexpr int64_t k1970To2000 = 946684800;
constexpr int64_t kLastSecond = (int64_t{1} << 48) - 1;
constexpr uint64_t kBillion = 1000000000;

static int64_t Seconds(const UTCDateTime& date) {
    return static_cast<int64_t>(date.highSeconds) << 32 | date.lowSeconds;
}

static UTCDateTime MakeDate(int64_t seconds, uint16_t fraction) {
    return {static_cast<uint16_t>(seconds >> 32), static_cast<uint32_t>(seconds), fraction};
}

UTCDateTime DateFromTimestamp(const statx_timestamp& time) {
    if (time.tv_sec < -k1904To1970) return MakeDate(0, 0);
    if (time.tv_sec > kLastSecond - k1904To1970) return MakeDate(kLastSecond, UINT16_MAX);
    const auto fraction = static_cast<uint16_t>((uint64_t{time.tv_nsec} << 16) / kBillion);
    return MakeDate(time.tv_sec + k1904To1970, fraction);
}

std::optional<timespec> TimeFromDate(const UTCDateTime& date) {
    const int64_t seconds = Seconds(date) - k1904To1970;
    if (SameDate(date, UTCDateTime{})) return std::nullopt;
    using Limits = std::numeric_limits<time_t>;
    if (seconds < int64_t{Limits::min()} || seconds > int64_t{Limits::max()}) return std::nullopt;
    timespec time = {};
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_nsec = static_cast<long>((date.fraction * kBillion + 0xFFFF) >> 16);
    return time;
}

std::optional<int32_t> MetadataDateFromDate(const UTCDateTime& date) {
    if (SameDate(date, UTCDateTime{})) return appledouble::kNoDate;
    const int64_t seconds = Seconds(date) - k1904To1970 - k1970To2000;
    if (seconds <= appledouble::kNoDate || seconds > INT32_MAX) return std::nullopt;
    return static_cast<int32_t>(seconds);
}

UTCDateTime DateFromMetadataDate(int32_t seconds) {
    if (seconds == appledouble::kNoDate) return {};
    return MakeDate(seconds + k1970To2000 + k1904To1970, 0);
}

bool SameDate(const UTCDateTime& a, const UTCDateTime& b) {
    return a.highSeconds == b.highSeconds && a.lowSeconds == b.lowSeconds && a.fraction == b.fraction;
}
