#include "platform/linux/format_output.h"

#include "platform/linux/mac_roman.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace format {

Output::~Output() {
    if (string_) CFRelease(string_);
}

void Output::Append(const UniChar* units, size_t n) {
    if (UniChar* place = Extend(n)) memcpy(place, units, n * sizeof(UniChar));
}

void Output::Append(std::string_view ascii) {
    if (UniChar* place = Extend(ascii.size())) std::copy(ascii.begin(), ascii.end(), place);
}

void Output::AppendFill(UniChar unit, size_t n) {
    if (n == 0) return;
    if (UniChar* place = Extend(n)) std::fill_n(place, n, unit);
}

void Output::AppendNumber(const Field& field, std::string_view prefix, size_t zeros,
                          std::string_view digits) {
    const size_t length = prefix.size() + zeros + digits.size();
    const size_t fill = field.width > length ? field.width - length : 0;
    UniChar* place = Extend(fill + length);
    if (!place) return;
    const bool filledWithZeros = field.zeroFilled && !field.left;
    if (!field.left && !filledWithZeros) place = std::fill_n(place, fill, u' ');
    place = std::copy(prefix.begin(), prefix.end(), place);
    place = std::fill_n(place, zeros + (filledWithZeros ? fill : 0), u'0');
    place = std::copy(digits.begin(), digits.end(), place);
    if (field.left) std::fill_n(place, fill, u' ');
}

void Output::AppendUnits(const Field& field, const UniChar* units, size_t n) {
    const size_t fill = field.width > n ? field.width - n : 0;
    if (!field.left) AppendFill(u' ', fill);
    Append(units, n);
    if (field.left) AppendFill(u' ', fill);
}

void Output::AppendMacRoman(const Field& field, const char* bytes, size_t n) {
    const size_t fill = field.width > n ? field.width - n : 0;
    if (!field.left) AppendFill(u' ', fill);
    UniChar* place = Extend(n);
    for (size_t i = 0; place && i < n; ++i) {
        const int unit = mac_roman::Decode(static_cast<uint8_t>(bytes[i]));
        if (unit < 0) return Fail();
        place[i] = static_cast<UniChar>(unit);
    }
    if (field.left) AppendFill(u' ', fill);
}

char* Output::Borrow(size_t n) {
    UniChar* place = Extend(n);
    if (!place) return nullptr;
    string_->length -= n;
    return reinterpret_cast<char*>(place);
}

void Output::Commit(size_t used) {
    UniChar* place = string_->units + string_->length;
    const char* bytes = reinterpret_cast<const char*>(place);
    // From the end, so that no byte is overwritten before it is read.
    for (size_t i = used; i-- > 0;) {
        const char byte = bytes[i];
        place[i] = static_cast<UniChar>(byte);
    }
    string_->length += used;
}

size_t Output::CountBeyondAscii() const {
    if (!string_) return 0;
    return static_cast<size_t>(std::count_if(string_->units, string_->units + string_->length,
                                             [](UniChar unit) { return unit >= 0x80; }));
}

CFStringRef Output::Finish() {
    OpaqueCFString* finished = string_;
    string_ = nullptr;
    if (finished) finished->isMutable = false;
    return finished;
}

void Output::Grow(size_t n) {
    const size_t wanted = string_->length + n;
    // Growing by half keeps the cost of many small pieces linear; one large piece may be all that there is room for.
    const bool fits =
        wanted >= n && (strings::Reserve(string_, wanted + wanted / 2) || strings::Reserve(string_, wanted));
    if (!fits) Fail();
}

void Output::Fail() {
    if (string_) CFRelease(string_);
    string_ = nullptr;
}

} // namespace format
