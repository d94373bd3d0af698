// Settled change times, by the coarse clock that the kernel stamps files with. It never runs ahead of the
// exact one, so an age measured with it is never too high. A time of whole seconds may come from a volume that
// keeps no finer ones, whatever its kind usually does.
#include "platform/linux/settled.h"

#include <cstdint>
#include <ctime>

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kFine = 20'000'000;        // longer than a tick of the slowest kernel clock
constexpr int64_t kCoarse = 5 * kSecond / 2; // FAT counts in steps of two seconds

bool IsSettled(const struct statx_timestamp& changed, bool fineTimes) {
    timespec now;
    if (clock_gettime(CLOCK_REALTIME_COARSE, &now) != 0) return false;
    if (changed.tv_sec > now.tv_sec) return false; // however far ahead
    if (changed.tv_sec < now.tv_sec - 3) return true;
    const int64_t age = (now.tv_sec - changed.tv_sec) * kSecond + now.tv_nsec - changed.tv_nsec;
    return age > (fineTimes && changed.tv_nsec != 0 ? kFine : kCoarse);
}
