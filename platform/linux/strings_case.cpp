// Letter case of the string service, on ICU's properties without a locale: full conversion and full case
// folding. ASCII does not enter ICU. Three rules are the platform's own: texts are compared by their folded
// code points as they stand, canonically equivalent forms being different; the Cyrillic letters U+1C80 to
// U+1C88 do not fold; a full stop ends a word, so that a capital sigma before it becomes the final one.
// Order: comparison, conversion.
#include "platform/strings.h"

#include "platform/linux/string_object.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>

namespace {

constexpr bool IsAsciiUpper(UChar32 c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool KeepsCase(UChar32 c) {
    return c >= 0x1C80 && c <= 0x1C88;
}

// Gives the case-folded code points of a text one by one.
class FoldedText {
public:
    explicit FoldedText(const OpaqueCFString* string) : next_(string->units), end_(next_ + string->length) {}

    // The next code point; -1 at the end.
    UChar32 Next() {
        if (pendingAt_ < pendingLength_) return TakePending();
        if (next_ == end_) return -1;
        const UChar32 c = TakeCodePoint();
        if (c < 0x80) return IsAsciiUpper(c) ? c + 0x20 : c;
        return KeepsCase(c) ? c : Fold(c);
    }

private:
    UChar32 TakeCodePoint() {
        const UniChar first = *next_++;
        if (!U16_IS_LEAD(first) || next_ == end_ || !U16_IS_TRAIL(*next_)) return first;
        return U16_GET_SUPPLEMENTARY(first, *next_++);
    }

    UChar32 TakePending() {
        UChar32 c = 0;
        U16_NEXT(pending_, pendingAt_, pendingLength_, c);
        return c;
    }

    // Folds one code point into as many as it takes and gives the first.
    UChar32 Fold(UChar32 c) {
        UniChar source[U16_MAX_LENGTH];
        int32_t n = 0;
        U16_APPEND_UNSAFE(source, n, c);
        UErrorCode status = U_ZERO_ERROR;
        pendingLength_ = u_strFoldCase(pending_, kMaxFolded, source, n, U_FOLD_CASE_DEFAULT, &status);
        pendingAt_ = 0;
        return TakePending();
    }

    static constexpr int32_t kMaxFolded = 8;

    const UniChar* next_;
    const UniChar* end_;
    int32_t pendingAt_ = 0;
    int32_t pendingLength_ = 0;
    UniChar pending_[kMaxFolded];
};

CFComparisonResult CompareFolded(FoldedText a, FoldedText b) {
    for (;;) {
        const UChar32 left = a.Next();
        const UChar32 right = b.Next();
        if (left != right) return left < right ? kCFCompareLessThan : kCFCompareGreaterThan;
        if (left < 0) return kCFCompareEqualTo;
    }
}

bool IsAscii(const OpaqueCFString* string) {
    UniChar all = 0;
    for (size_t i = 0; i < string->length; ++i) all |= string->units[i];
    return all < 0x80;
}

// Turns the ASCII letters from `first` to `first` + 25 into the other case.
void ConvertAscii(OpaqueCFString* string, UniChar first) {
    for (size_t i = 0; i < string->length; ++i) {
        UniChar& unit = string->units[i];
        unit ^= static_cast<UniChar>(unit - first) < 26 ? 0x20 : 0;
    }
}

using Mapping = int32_t (*)(UniChar* dest, int32_t destCapacity, const UniChar* src, int32_t srcLength,
                            const char* locale, UErrorCode* status);

// One unit never becomes more than three.
constexpr size_t kMaxGrowth = 3;

// Converts what lies between full stops on its own, so that each of them ends a word. How many units, or -1.
ptrdiff_t ConvertWords(const UniChar* in, size_t n, Mapping mapping, UniChar* out) {
    const UniChar* end = in + n;
    const UniChar* start = out;
    while (in < end) {
        const UniChar* stop = std::find(in, end, u'.');
        UErrorCode status = U_ZERO_ERROR;
        const int32_t length = static_cast<int32_t>(stop - in);
        out += mapping(out, length * static_cast<int32_t>(kMaxGrowth), in, length, "", &status);
        if (U_FAILURE(status)) return -1;
        in = stop;
        while (in < end && *in == u'.') *out++ = *in++;
    }
    return out - start;
}

// Replaces the text by its converted form; it stays as it is when memory runs out.
void ConvertFully(OpaqueCFString* string, Mapping mapping) {
    constexpr size_t kMaxLength = std::numeric_limits<int32_t>::max() / kMaxGrowth;
    UniChar room[1024];
    const size_t wanted = string->length * kMaxGrowth;
    if (string->length > kMaxLength) return;
    std::unique_ptr<UniChar[]> larger(wanted > std::size(room) ? new (std::nothrow) UniChar[wanted]
                                                               : nullptr);
    if (wanted > std::size(room) && !larger) return;
    UniChar* converted = larger ? larger.get() : room;
    const ptrdiff_t length = ConvertWords(string->units, string->length, mapping, converted);
    if (length < 0 || !strings::Reserve(string, static_cast<size_t>(length))) return;
    string->length = static_cast<size_t>(length);
    memcpy(string->units, converted, string->length * sizeof(UniChar));
}

void Convert(OpaqueCFString* string, UniChar firstAscii, Mapping mapping) {
    assert(string->isMutable);
    if (IsAscii(string)) {
        ConvertAscii(string, firstAscii);
    } else {
        ConvertFully(string, mapping);
    }
}

} // namespace

CFComparisonResult CFStringCompare(CFStringRef string1, CFStringRef string2,
                                   [[maybe_unused]] CFOptionFlags options) {
    assert(options == kCFCompareCaseInsensitive);
    return CompareFolded(FoldedText(string1), FoldedText(string2));
}

void CFStringUppercase(CFMutableStringRef string, CFLocaleRef) {
    Convert(string, u'a', u_strToUpper);
}

void CFStringLowercase(CFMutableStringRef string, CFLocaleRef) {
    Convert(string, u'A', u_strToLower);
}
