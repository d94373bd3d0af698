// Formats of all kinds with values that suit every conversion: each integer or pointer is the address of an
// object of the string service, behind which zeros follow. Where that is not enough, the format is passed
// over: "*" would take an address for a width, "L" takes values that the others do not, and long numbers ask
// for much memory.
#include "input.h"

#include "platform/strings.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr size_t kMostConversions = 6;

struct {
    CFConstantString object;
    char zeros[512];
} value = {{&__CFConstantStringClassReference, 2, u"xy", false}, {}};

bool IsSuitable(const std::basic_string<TavChar>& format) {
    size_t conversions = 0, digits = 0;
    for (const TavChar c : format) {
        digits = c < 0x80 && isdigit(c) ? digits + 1 : 0;
        conversions += c == '%';
        if (c == '*' || c == 'L' || digits > 4) return false;
    }
    return conversions <= kMostConversions;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::basic_string<TavChar> format = Units(data, size);
    if (!IsSuitable(format)) return 0;
    static TavChar buffer[1001];
    const void* p = &value;
    const int32_t length = tav_snwprintf(buffer, 1000, format.c_str(), p, p, p, p, p, p, p, p, 0.5, -1e300,
                                         1e-5, 123456.0, 0.0, 2.5, 1.0, -0.0);
    Expect(length >= -1000 && length <= 1000);
    Expect(buffer[length < 0 ? -length : length] == 0);
    return 0;
}
