// The numbers that texts begin with. Which characters count as spaces is the platform's own list: controls
// and ASCII's spaces, the delete character up to the no-break space, U+2000 to U+200B, U+3000. Digits are
// ASCII. Floating values are rounded correctly by the language's own conversion, which knows no locale.
// Order: spaces, integers, floating values.
#include "platform/strings.h"

#include "platform/linux/string_object.h"

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <limits>

namespace {

constexpr bool IsSpace(UniChar unit) {
    return (unit >= 0x01 && unit <= 0x20) || (unit >= 0x7F && unit <= 0xA0) ||
           (unit >= 0x2000 && unit <= 0x200B) || unit == 0x3000;
}

constexpr bool IsDigit(UniChar unit) {
    return unit >= '0' && unit <= '9';
}

// A text being read from its start; behind its end comes 0.
class Reader {
public:
    explicit Reader(CFStringRef string) : next_(string->units), end_(next_ + string->length) {}

    UniChar Peek() const { return next_ < end_ ? *next_ : u'\0'; }
    void Skip() { ++next_; }

    void SkipSpaces() {
        while (IsSpace(Peek())) Skip();
    }

    // Steps over a sign; whether it was a "-".
    bool TakeSign() {
        const bool negative = Peek() == '-';
        if (negative || Peek() == '+') Skip();
        return negative;
    }

private:
    const UniChar* next_;
    const UniChar* end_;
};

// The decimal digits of a floating value, leading zeros dropped, as `0.digits * 10^exponent`. Digits beyond
// the capacity, more than any rounding looks at, only leave a trace that they were not all zero.
class Decimal {
public:
    void AddDigit(char digit, bool fraction) {
        any_ = true;
        const bool leadingZero = count_ == 0 && digit == '0';
        if (count_ < kExactDigits) whole_ = whole_ * 10 + static_cast<uint64_t>(digit - '0');
        if (leadingZero || count_ == kCapacity) {
            if (!leadingZero && digit != '0') digits_[kCapacity - 1] = '1';
        } else {
            digits_[count_++] = digit;
        }
        // A leading zero of the fraction moves the point; any other digit of the whole part does.
        if (leadingZero)
            exponent_ -= fraction;
        else
            exponent_ += !fraction;
    }

    void Scale(int64_t exponent) { exponent_ += exponent; }
    bool any() const { return any_; }
    double Value() const;

private:
    static constexpr size_t kCapacity = 800;
    // As many digits are always a whole number that a double holds.
    static constexpr size_t kExactDigits = std::numeric_limits<double>::digits10;

    bool HasExactValue(double& value) const;

    char digits_[kCapacity + 32];
    uint64_t whole_ = 0; // of the first digits
    size_t count_ = 0;
    int64_t exponent_ = 0;
    bool any_ = false;
};

// Short numbers take one step from two exact ones, which is rounded correctly where there is no wider
// register to round it twice.
bool Decimal::HasExactValue(double& value) const {
    constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                  1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const int64_t scale = exponent_ - static_cast<int64_t>(count_);
    const auto greatest = static_cast<int64_t>(std::size(kPowers)) - 1;
    if (FLT_EVAL_METHOD != 0 || count_ > kExactDigits || scale < -greatest || scale > greatest) return false;
    const auto whole = static_cast<double>(whole_);
    value = scale < 0 ? whole / kPowers[-scale] : whole * kPowers[scale];
    return true;
}

double Decimal::Value() const {
    if (count_ == 0) return 0.0;
    double value = 0.0;
    if (HasExactValue(value)) return value;
    // Beyond these no double is left, and the exponent fits what is written behind the digits.
    if (exponent_ > std::numeric_limits<double>::max_exponent10 + 1)
        return std::numeric_limits<double>::infinity();
    if (exponent_ < std::numeric_limits<double>::min_exponent10 - std::numeric_limits<double>::digits10 - 2)
        return 0.0;
    char text[kCapacity + 32];
    char* end = std::copy_n(digits_, count_, text);
    *end++ = 'e';
    end = std::to_chars(end, end + 24, exponent_ - static_cast<int64_t>(count_)).ptr;
    if (FLT_EVAL_METHOD != 0) {
        // Where registers are wider than a double, from_chars rounds twice. There is no point for a locale.
        *end = '\0';
        const int kept = errno; // a text that is too small for a double is no failure
        const double rounded = std::strtod(text, nullptr);
        errno = kept;
        return rounded;
    }
    const std::from_chars_result result = std::from_chars(text, end, value);
    if (result.ec == std::errc{}) return value;
    return exponent_ > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

// Takes the digits in front; `fraction` tells on which side of the point they stand.
void TakeDigits(Reader& reader, Decimal& decimal, bool fraction) {
    for (; IsDigit(reader.Peek()); reader.Skip())
        decimal.AddDigit(static_cast<char>(reader.Peek()), fraction);
}

// Takes an exponent when a whole one is there.
void TakeExponent(Reader& reader, Decimal& decimal) {
    if ((reader.Peek() | 0x20) != 'e') return;
    reader.Skip();
    const bool negative = reader.TakeSign();
    int64_t exponent = 0;
    // More than any text's length could make up for.
    constexpr int64_t kEnough = int64_t{1} << 40;
    for (; IsDigit(reader.Peek()); reader.Skip()) {
        exponent = std::min(exponent * 10 + (reader.Peek() - '0'), kEnough);
    }
    decimal.Scale(negative ? -exponent : exponent);
}

} // namespace

int32_t CFStringGetIntValue(CFStringRef string) {
    Reader reader(string);
    reader.SkipSpaces();
    const bool negative = reader.TakeSign();
    reader.SkipSpaces();
    constexpr int64_t beyond = int64_t{std::numeric_limits<int32_t>::max()} + 1;
    int64_t magnitude = 0;
    for (; IsDigit(reader.Peek()); reader.Skip()) {
        if (magnitude < beyond) magnitude = magnitude * 10 + (reader.Peek() - '0');
    }
    return static_cast<int32_t>(negative ? -std::min(magnitude, beyond) : std::min(magnitude, beyond - 1));
}

double CFStringGetDoubleValue(CFStringRef string) {
    Reader reader(string);
    reader.SkipSpaces();
    const bool negative = reader.TakeSign();
    Decimal decimal;
    TakeDigits(reader, decimal, false);
    if (reader.Peek() == '.') {
        reader.Skip();
        TakeDigits(reader, decimal, true);
    }
    if (!decimal.any()) return 0.0;
    TakeExponent(reader, decimal);
    return std::copysign(decimal.Value(), negative ? -1.0 : 1.0);
}
