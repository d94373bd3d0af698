#include "text/number_parsing.h"

#include "platform/strings.h"
#include "text/character_classes.h"
#include "text/unit_scan.h"

#include <cctype>
#include <cerrno>
#include <limits>
#include <type_traits>

namespace {

constexpr uint32_t kGreatest = std::numeric_limits<uint32_t>::max();
constexpr uint32_t kNoDigit = kGreatest;

// What the engine expects next, as masks.
enum State : uint32_t {
    kStart = 0x01,
    kCheckForZero = 0x02,
    kLeadingZero = 0x04,
    kNeedDigit = 0x08,
    kDigitLoop = 0x10,
    kFinished = 0x20,
    kFailure = 0x40,
};

constexpr uint32_t kDone = kFinished | kFailure;
constexpr uint32_t kHasDigits = kLeadingZero | kDigitLoop | kFinished;

// One number being read through a reader of units. What it consumes is counted with the character in hand.
template <typename Unit, typename Reader>
class NumberScan {
public:
    NumberScan(int32_t base, int32_t maxWidth, Reader reader, void* source)
        : base_(static_cast<uint32_t>(base)), maxWidth_(maxWidth), reader_(reader), source_(source) {
        if (base < 0 || base == 1 || base > 36 || maxWidth < 1) {
            state_ = kFailure;
        } else {
            Take();
        }
        if (base > 0) limit_ = kGreatest / base_;
    }

    // Reads to the number's end, which may be the width, and gives back the character behind it.
    void Run() {
        while (count_ <= maxWidth_ && !(state_ & kDone)) Step();
        if (state_ & kHasDigits) {
            --count_;
        } else {
            value_ = 0;
            count_ = 0;
        }
        reader_(source_, c_, kReadBack);
    }

    uint32_t value() const { return value_; }
    int32_t count() const { return static_cast<int32_t>(count_); }
    bool negative() const { return negative_; }
    bool overflow() const { return overflow_; }

private:
    void Take() {
        ++count_;
        c_ = reader_(source_, 0, kReadNext);
    }

    void Step() {
        switch (state_) {
        case kStart:
            return Start();
        case kCheckForZero:
            return CheckForZero();
        case kLeadingZero:
            return LeadingZero();
        default:
            return Digits();
        }
    }

    void Start() {
        if (ClassesOf(c_, kSpace)) return Take();
        negative_ = c_ == '-';
        if (c_ == '+' || c_ == '-') Take();
        state_ = kCheckForZero;
    }

    void CheckForZero() {
        state_ = kNeedDigit;
        if ((base_ != 0 && base_ != 16) || c_ != '0') return;
        Take();
        state_ = kLeadingZero;
    }

    // kept: a prefix that no digit follows makes the whole number fail, its zero too.
    void LeadingZero() {
        if (c_ == 'x' || c_ == 'X') {
            base_ = 16;
            Take();
            state_ = kNeedDigit;
        } else {
            if (base_ == 0) base_ = 8;
            state_ = kDigitLoop;
        }
    }

    void Digits() {
        if (base_ == 0) base_ = 10;
        if (limit_ == 0) limit_ = kGreatest / base_;
        while (count_ <= maxWidth_) {
            const uint32_t digit = DigitValue();
            if (digit >= base_) {
                state_ = state_ == kDigitLoop ? kFinished : kFailure;
                return;
            }
            if (value_ > limit_ || digit > kGreatest - value_ * base_) overflow_ = true;
            value_ = value_ * base_ + digit;
            state_ = kDigitLoop;
            Take();
        }
    }

    // The value of the character in hand in some base, kNoDigit for what is none in this one.
    uint32_t DigitValue() const {
        if (ClassesOf(c_, kDigit)) return c_ - '0';
        constexpr uint32_t beforeA = 'A' - 10;
        if (!ClassesOf(c_, kAlpha) || static_cast<uint32_t>(toupper(c_)) - beforeA >= base_) return kNoDigit;
        return tav_towupper(c_) - beforeA;
    }

    uint32_t state_ = kStart;
    uint32_t base_;
    int32_t maxWidth_;
    uint32_t limit_ = 0;
    uint32_t value_ = 0;
    int64_t count_ = 0;
    bool negative_ = false;
    bool overflow_ = false;
    Unit c_ = 0;
    Reader reader_;
    void* source_;
};

template <typename Unit, typename Reader>
uint32_t Parse(int32_t base, int32_t maxWidth, Reader reader, void* state, int32_t* charsScanned,
               int32_t* negative, int32_t* overflow) {
    NumberScan<Unit, Reader> number(base, maxWidth, reader, state);
    number.Run();
    *charsScanned = number.count();
    *negative = number.negative();
    *overflow = number.overflow();
    return number.value();
}

template <typename Unit>
Unit ReadString(void* state, Unit c, int32_t action) {
    auto& scan = *static_cast<TavStringScan*>(state);
    switch (action) {
    case kReadNext:
        if (*scan.next) return *scan.next++;
        scan.endSeen = 1;
        return kEndOfText;
    case kReadBack:
        // At the end the place has not moved.
        if (!scan.endSeen) --scan.next;
        scan.endSeen = 0;
        return c;
    case kReadAtEnd:
        return static_cast<Unit>(scan.endSeen);
    default:
        return 0;
    }
}

// The readers that there are, for each form of the engine.
constexpr struct {
    TavReader wide;
    TavReader16 wide16;
} kStringReaders = {tav__wStringRead, tav__wStringRead16};

// The table's reader for a form, known to the compiler.
template <typename Unit>
struct StringReader {
    Unit operator()(void* state, Unit c, int32_t action) const {
        if constexpr (std::is_same_v<Unit, TavChar>)
            return kStringReaders.wide(state, c, action);
        else
            return kStringReaders.wide16(state, c, action);
    }
};

// What stands at the start of a text, and where it ends.
struct Parsed {
    uint32_t value;
    int32_t negative;
    int32_t overflow;
};

template <typename Unit>
Parsed ParseString(const TavChar* s, TavChar** end, int32_t base) {
    TavStringScan scan = {s, 0};
    Parsed parsed = {};
    int32_t count = 0;
    parsed.value = Parse<Unit>(base, std::numeric_limits<int32_t>::max(), StringReader<Unit>{}, &scan, &count,
                               &parsed.negative, &parsed.overflow);
    if (end) *end = const_cast<TavChar*>(s) + count;
    return parsed;
}

template <typename Unit>
uint32_t ToUnsigned(const TavChar* s, TavChar** end, int32_t base) {
    const Parsed parsed = ParseString<Unit>(s, end, base);
    if (parsed.overflow) {
        errno = ERANGE;
        return kGreatest;
    }
    return parsed.negative ? 0 - parsed.value : parsed.value;
}

template <typename Unit>
int32_t ToSigned(const TavChar* s, TavChar** end, int32_t base) {
    const Parsed parsed = ParseString<Unit>(s, end, base);
    constexpr uint32_t greatest = 0x7FFFFFFF;
    const uint32_t limit = parsed.negative ? greatest + 1 : greatest;
    const bool fits = !parsed.overflow && parsed.value <= limit;
    if (!fits) errno = ERANGE;
    const uint32_t magnitude = fits ? parsed.value : limit;
    return static_cast<int32_t>(parsed.negative ? 0 - magnitude : magnitude);
}

// A platform string that borrows a text.
CFStringRef MakeString(OpaqueCFAllocator& room, const TavChar* s) {
    const auto length = static_cast<CFIndex>(s ? scan::Length(s) : 0);
    return CFStringCreateWithCharactersNoCopy(&room, s, length, kCFAllocatorNull);
}

} // namespace

TavChar tav__wStringRead(void* state, TavChar c, int32_t action) {
    return ReadString<TavChar>(state, c, action);
}

uint16_t tav__wStringRead16(void* state, uint16_t c, int32_t action) {
    return ReadString<uint16_t>(state, c, action);
}

uint32_t tav__wcstoul(int32_t base, int32_t maxWidth, TavReader reader, void* state, int32_t* charsScanned,
                      int32_t* negative, int32_t* overflow) {
    return Parse<TavChar>(base, maxWidth, reader, state, charsScanned, negative, overflow);
}

uint32_t tav__wcstoul16(int32_t base, int32_t maxWidth, TavReader16 reader, void* state,
                        int32_t* charsScanned, int32_t* negative, int32_t* overflow) {
    return Parse<uint16_t>(base, maxWidth, reader, state, charsScanned, negative, overflow);
}

uint32_t tav_wcstoul(const TavChar* s, TavChar** end, int32_t base) {
    return ToUnsigned<TavChar>(s, end, base);
}
uint32_t tav_wcstoul16(const TavChar* s, TavChar** end, int32_t base) {
    return ToUnsigned<uint16_t>(s, end, base);
}
int32_t tav_wcstol(const TavChar* s, TavChar** end, int32_t base) {
    return ToSigned<TavChar>(s, end, base);
}
int32_t tav_wcstol16(const TavChar* s, TavChar** end, int32_t base) {
    return ToSigned<uint16_t>(s, end, base);
}
int32_t tav_wtol(const TavChar* s) {
    return tav_wcstol(s, nullptr, 10);
}
int32_t tav_wtol16(const TavChar* s) {
    return tav_wcstol16(s, nullptr, 10);
}

// kept: the platform's reading of the whole text, whose spaces, signs and limits are not the engine's.
int32_t tav_wtoi16(const TavChar* s) {
    OpaqueCFAllocator room;
    CFStringRef text = MakeString(room, s);
    if (!text) return 0;
    const int32_t value = CFStringGetIntValue(text);
    CFRelease(text);
    return value;
}

int32_t tav_wtoi(const TavChar* s) {
    return tav_wtoi16(s);
}

double tav_wcstod(const TavChar* s, TavChar** end) {
    // kept: never the number's end.
    if (end) *end = nullptr;
    OpaqueCFAllocator room;
    CFStringRef text = MakeString(room, s);
    if (!text) return 0.0;
    const double value = CFStringGetDoubleValue(text);
    CFRelease(text);
    return value;
}
