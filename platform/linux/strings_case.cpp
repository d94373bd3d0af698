// Letter case of the string service, on ICU's properties without a locale: full conversion and full case
// folding. ASCII does not enter ICU. Three rules are the platform's own: texts are compared by their folded
// code points as they stand, canonically equivalent forms being different; the Cyrillic letters U+1C80 to
// U+1C88 do not fold; a full stop ends a word, so that a capital sigma before it becomes the final one.
// Order: comparison, conversion.
#include "platform/strings.h"

#include "platform/linux/ascii.h"
#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/current_task.h"
#include "platform/linux/string_object.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>

namespace {

constexpr bool KeepsCase(UChar32 c) {
    return c >= 0x1C80 && c <= 0x1C88;
}

constexpr int32_t kMaxFolded = 8; // units that one code point may become, and more

// Folds one code point into `folded`; how many units, 0 when ICU fails.
int32_t FoldCodePoint(UChar32 c, UniChar* folded) {
    UniChar source[U16_MAX_LENGTH];
    int32_t n = 0;
    U16_APPEND_UNSAFE(source, n, c);
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = u_strFoldCase(folded, kMaxFolded, source, n, U_FOLD_CASE_DEFAULT, &status);
    return U_SUCCESS(status) ? length : 0;
}

// The folded form of each unit of the alphabets before Hebrew, where it is one unit; asked of ICU once. The
// others have 0.
class FoldTable {
public:
    static constexpr UChar32 kSize = 0x590;

    // kSize units.
    const UniChar* Units() {
        if (!made_.load(std::memory_order_acquire)) Make();
        return folded_.data();
    }

private:
    void Make() {
        const HeldLock guard(lock_);
        if (made_.load(std::memory_order_relaxed)) return;
        for (UChar32 c = 0; c < kSize; ++c) {
            UniChar folded[kMaxFolded];
            folded_[static_cast<size_t>(c)] = FoldCodePoint(c, folded) == 1 ? folded[0] : 0;
        }
        made_.store(true, std::memory_order_release);
    }

    std::atomic<bool> made_{false};
    ChildSafeMutex lock_;
    std::array<UniChar, kSize> folded_{};
};

constinit FoldTable foldTable;

// Gives the case-folded code points of a text one by one.
class FoldedText {
public:
    // The text from unit `start` on.
    FoldedText(const OpaqueCFString* string, size_t start)
        : folded_(foldTable.Units()), next_(string->units + start), end_(string->units + string->length) {}

    // The next code point; -1 at the end.
    UChar32 Next() {
        if (pendingAt_ < pendingLength_) return TakePending();
        if (next_ == end_) return -1;
        const UChar32 c = TakeCodePoint();
        if (c < FoldTable::kSize) {
            if (const UniChar folded = folded_[c]) return folded;
        }
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
        pendingLength_ = FoldCodePoint(c, pending_);
        pendingAt_ = 0;
        return pendingLength_ ? TakePending() : c;
    }

    UniChar pending_[kMaxFolded];
    const UniChar* folded_;
    const UniChar* next_;
    const UniChar* end_;
    int32_t pendingAt_ = 0;
    int32_t pendingLength_ = 0;
};

// Units in front, in whole blocks, that are ASCII in both texts and equal but for case.
size_t CommonAscii(CFStringRef a, CFStringRef b) {
    const size_t shorter = std::min(a->length, b->length);
    size_t i = 0;
    for (; i + ascii::kBlock <= shorter; i += ascii::kBlock) {
        ascii::Block left, right;
        ascii::Load(left, a->units + i);
        ascii::Load(right, b->units + i);
        const ascii::Block beyondAscii = (left | right) & 0xFF80;
        ascii::SwitchCase(left, u'A');
        ascii::SwitchCase(right, u'A');
        if (!ascii::IsZero((left ^ right) | beyondAscii)) break;
    }
    return i;
}

CFComparisonResult CompareFolded(FoldedText a, FoldedText b) {
    for (;;) {
        const UChar32 left = a.Next();
        const UChar32 right = b.Next();
        if (left != right) return left < right ? kCFCompareLessThan : kCFCompareGreaterThan;
        if (left < 0) return kCFCompareEqualTo;
    }
}

// Turns the ASCII letters from `first` to `first` + 25 into the other case.
void ConvertAscii(OpaqueCFString* string, UniChar first) {
    size_t i = 0;
    for (; i + ascii::kBlock <= string->length; i += ascii::kBlock) {
        ascii::Block block;
        ascii::Load(block, string->units + i);
        ascii::SwitchCase(block, first);
        memcpy(string->units + i, &block, sizeof block);
    }
    for (; i < string->length; ++i) {
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
    if (ascii::IsAscii(string->units, string->length)) {
        ConvertAscii(string, firstAscii);
    } else {
        ConvertFully(string, mapping);
    }
}

} // namespace

CFComparisonResult CFStringCompare(CFStringRef string1, CFStringRef string2,
                                   [[maybe_unused]] CFOptionFlags options) {
    assert(options == kCFCompareCaseInsensitive);
    const size_t common = CommonAscii(string1, string2);
    if (common == string1->length && common == string2->length) return kCFCompareEqualTo;
    return CompareFolded(FoldedText(string1, common), FoldedText(string2, common));
}

void CFStringUppercase(CFMutableStringRef string, CFLocaleRef) {
    Convert(string, u'a', u_strToUpper);
}

void CFStringLowercase(CFMutableStringRef string, CFLocaleRef) {
    Convert(string, u'A', u_strToLower);
}
