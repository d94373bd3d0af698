// Formats of all kinds with values that suit every conversion. Ordinary ones take each integer or pointer as the
// address of an object of the string service, behind which zeros follow. "*" would take an address for a width
// and "L" values that the others do not, so formats with these get small numbers, or nothing but zeros where
// texts are among them. Widths that ask for much memory are passed over, those beyond 31 bits are not.
#include "input.h"

#include "platform/strings.h"

#include <algorithm>
#include <climits>

namespace {

constexpr size_t kMostConversions = 6;
constexpr int64_t kLargestWidth = 9999;
constexpr uint32_t kRoom = 1000;
constexpr double kLargeNumber = 1e300;

using Text = std::basic_string<TavChar>;

struct {
    CFConstantString object;
    char zeros[512];
} value = {{&__CFConstantStringClassReference, 2, u"xy", false}, {}};

bool AsksForMuchMemory(const Text& format) {
    int64_t number = 0;
    for (const TavChar* c = format.c_str();; ++c) {
        const bool isDigit = *c >= '0' && *c <= '9';
        if (isDigit) {
            number = std::min<int64_t>(number * 10 + *c - '0', int64_t{INT_MAX} + 1);
            continue;
        }
        if (number > kLargestWidth && number <= INT_MAX) return true;
        if (*c == 0) return false;
        number = 0;
    }
}

bool Has(const Text& format, const TavChar* any) {
    return format.find_first_of(any) != Text::npos;
}

// The result of one call with these values.
template <typename... Values>
void Check(const Text& format, Values... values) {
    static TavChar buffer[kRoom + 1];
    const int32_t length = tav_snwprintf(buffer, kRoom, format.c_str(), values...);
    const auto most = static_cast<int32_t>(kRoom);
    Expect(length >= -most && length <= most);
    Expect(buffer[length < 0 ? -length : length] == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Text format = Units(data, size);
    if (std::count(format.begin(), format.end(), u'%') > static_cast<ptrdiff_t>(kMostConversions)) return 0;
    if (AsksForMuchMemory(format)) return 0;
    const bool hasStar = Has(format, u"*"), hasLong = Has(format, u"L"), hasTexts = Has(format, u"sSP@");
    const void* p = &value;
    constexpr int64_t z = 0;
    if (!hasStar && !hasLong)
        Check(format, p, p, p, p, p, p, p, p, 0.5, -kLargeNumber, 1e-5, 123456.0, 0.0, 2.5, 1.0, -0.0);
    else if (hasTexts || (hasStar && hasLong))
        Check(format, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, 0.5, 1.0, 1e9,
              0.0);
    else if (hasStar)
        Check(format, int64_t{5}, int64_t{-7}, int64_t{0}, int64_t{12}, int64_t{300}, int64_t{1}, int64_t{-1},
              int64_t{2}, int64_t{64}, int64_t{-3}, int64_t{0}, int64_t{9}, int64_t{40}, int64_t{3},
              int64_t{-20}, int64_t{8}, int64_t{6}, int64_t{1}, z, z, z, z, z, z, 0.5, -kLargeNumber, 1e-5,
              0.0);
    else
        Check(format, 7, -7, 0, 0.5, -kLargeNumber, 1e-5, 123456.0, 0.0, 2.5, 1.0, -0.0, 0.5L, -1e300L,
              1e-300L, 123456.75L, 0.0L, 2.5L, -0.0L, 1e18L);
    return 0;
}
