// Integers are written here; common floating conversions go through the language's own correctly rounded
// ones, which know no locale; the rest (hexadecimal, long double, the "#" flag) through the C library in the
// "C" locale. Order: integers, floating values.
#include "platform/linux/format_numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <locale.h>
#include <memory>
#include <new>

namespace format {

namespace {

constexpr bool IsUpper(char letter) {
    return letter >= 'A' && letter <= 'Z';
}

// Bits of a conversion's integer type.
unsigned BitsOf(const Conversion& conversion) {
    switch (conversion.length) {
    case Length::Char:
        return 8;
    case Length::Short:
        return 16;
    default:
        break;
    }
    switch (TypeOf(conversion)) {
    case ArgumentType::Int:
        return sizeof(int) * 8;
    case ArgumentType::Long:
        return sizeof(long) * 8;
    case ArgumentType::Size:
        return sizeof(ptrdiff_t) * 8;
    default:
        return 64;
    }
}

uint64_t Truncated(int64_t value, unsigned bits) {
    const auto unsignedValue = static_cast<uint64_t>(value);
    return bits == 64 ? unsignedValue : unsignedValue & ((uint64_t{1} << bits) - 1);
}

int64_t SignExtended(int64_t value, unsigned bits) {
    const unsigned unused = 64 - bits;
    return static_cast<int64_t>(static_cast<uint64_t>(value) << unused) >> unused;
}

std::string_view SignOf(const Conversion& conversion, bool negative) {
    if (negative) return "-";
    if (conversion.plus) return "+";
    return conversion.space ? " " : "";
}

int BaseOf(Kind kind) {
    if (kind == Kind::Hexadecimal) return 16;
    return kind == Kind::Octal ? 8 : 10;
}

void MakeUpper(char* first, char* last) {
    std::transform(first, last, first,
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 0x20) : c; });
}

// Memory that any double takes at a precision: digits in front of the point, and what stands around them.
size_t RoomFor(char letter, long double value, int32_t precision) {
    constexpr size_t around = 64;
    size_t whole = 1;
    if ((letter | 0x20) == 'f' && std::isfinite(value) && std::fabs(value) >= 10) {
        int exponent = 0;
        frexpl(value, &exponent);
        if (exponent > 0) whole = static_cast<size_t>(exponent) * 302 / 1000 + 2;
    }
    return around + whole + static_cast<size_t>(std::max(precision, 6));
}

std::chars_format FormatOf(char letter) {
    switch (letter | 0x20) {
    case 'e':
        return std::chars_format::scientific;
    case 'f':
        return std::chars_format::fixed;
    default:
        return std::chars_format::general;
    }
}

void AppendFinite(Output& output, const Conversion& conversion, Field field, int32_t precision,
                  double value) {
    const size_t room = RoomFor(conversion.letter, value, precision);
    // Short ones are written aside, because the field's fill comes in front of them.
    char few[128];
    const bool isShort = room <= sizeof few;
    std::unique_ptr<char[]> many(isShort ? nullptr : new (std::nothrow) char[room]);
    char* digits = isShort ? few : many.get();
    if (!digits) return output.Fail();
    const auto result =
        std::to_chars(digits, digits + room, std::fabs(value), FormatOf(conversion.letter), precision);
    if (result.ec != std::errc{}) return output.Fail();
    if (IsUpper(conversion.letter)) MakeUpper(digits, result.ptr);
    output.AppendNumber(field, SignOf(conversion, std::signbit(value)), 0, {digits, result.ptr});
}

void AppendNonFinite(Output& output, const Conversion& conversion, Field field, long double value) {
    field.zeroFilled = false;
    const bool isUpper = IsUpper(conversion.letter);
    const char* name = std::isnan(value) ? (isUpper ? "NAN" : "nan") : (isUpper ? "INF" : "inf");
    output.AppendNumber(field, SignOf(conversion, std::signbit(value)), 0, name);
}

// The "C" locale for the calling thread while this lives.
class NeutralLocale {
public:
    NeutralLocale() : locale_(newlocale(LC_ALL_MASK, "C", nullptr)) {
        if (locale_) previous_ = uselocale(locale_);
    }
    ~NeutralLocale() {
        if (!locale_) return;
        uselocale(previous_);
        freelocale(locale_);
    }
    NeutralLocale(const NeutralLocale&) = delete;
    NeutralLocale& operator=(const NeutralLocale&) = delete;

    bool ok() const { return locale_ != nullptr; }

private:
    locale_t locale_;
    locale_t previous_ = nullptr;
};

// The conversion written out for the C library, with both numbers as arguments.
void WriteFormat(const Conversion& conversion, const Field& field, char* out) {
    *out++ = '%';
    if (field.left) *out++ = '-';
    if (conversion.plus) *out++ = '+';
    if (conversion.space) *out++ = ' ';
    if (conversion.alternate) *out++ = '#';
    if (field.zeroFilled) *out++ = '0';
    *out++ = '*';
    *out++ = '.';
    *out++ = '*';
    if (conversion.length == Length::LongDouble) *out++ = 'L';
    *out++ = conversion.letter;
    *out = 0;
}

void AppendByCLibrary(Output& output, const Conversion& conversion, const Field& field, int32_t precision,
                      const Value& value) {
    const bool isLong = conversion.length == Length::LongDouble;
    const long double magnitude = isLong ? value.longFloating : static_cast<long double>(value.floating);
    const size_t room = std::max(RoomFor(conversion.letter, magnitude, precision), field.width) + 1;
    char format[16];
    WriteFormat(conversion, field, format);
    const NeutralLocale neutral;
    char* place = output.Borrow(room);
    if (!place) return;
    if (!neutral.ok()) return output.Fail();
    const int width = static_cast<int>(field.width);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = isLong ? snprintf(place, room, format, width, precision, value.longFloating)
                              : snprintf(place, room, format, width, precision, value.floating);
#pragma GCC diagnostic pop
    if (length < 0 || static_cast<size_t>(length) >= room) return output.Fail();
    output.Commit(static_cast<size_t>(length));
}

} // namespace

void AppendInteger(Output& output, const Conversion& conversion, Field field, int32_t precision,
                   int64_t value) {
    const unsigned bits = BitsOf(conversion);
    const bool isSigned = conversion.kind == Kind::Signed;
    const int base = BaseOf(conversion.kind);
    const bool negative = isSigned && SignExtended(value, bits) < 0;
    uint64_t magnitude = isSigned ? static_cast<uint64_t>(SignExtended(value, bits)) : Truncated(value, bits);
    if (negative) magnitude = 0 - magnitude;

    constexpr size_t kMostDigits = 22; // 64 bits in octal
    char digits[kMostDigits];
    char* end = std::to_chars(digits, digits + kMostDigits, magnitude, base).ptr;
    if (conversion.letter == 'X') MakeUpper(digits, end);
    if (magnitude == 0 && precision == 0) end = digits;

    const auto length = static_cast<size_t>(end - digits);
    size_t zeros = precision > 0 && static_cast<size_t>(precision) > length
                       ? static_cast<size_t>(precision) - length
                       : 0;
    std::string_view prefix = isSigned ? SignOf(conversion, negative) : "";
    if (conversion.alternate && base == 16 && magnitude != 0) {
        prefix = conversion.letter == 'X' ? "0X" : "0x";
    } else if (conversion.alternate && base == 8 && zeros == 0 && (length == 0 || *digits != '0')) {
        zeros = 1;
    }
    // A precision takes the zero flag's place.
    if (precision >= 0) field.zeroFilled = false;
    output.AppendNumber(field, prefix, zeros, {digits, end});
}

void AppendFloating(Output& output, const Conversion& conversion, Field field, int32_t precision,
                    const Value& value) {
    const bool isLong = conversion.length == Length::LongDouble;
    const bool isFinite = isLong ? std::isfinite(value.longFloating) : std::isfinite(value.floating);
    if (!isFinite) {
        AppendNonFinite(output, conversion, field,
                        isLong ? value.longFloating : static_cast<long double>(value.floating));
    } else if (isLong || conversion.alternate || (conversion.letter | 0x20) == 'a') {
        AppendByCLibrary(output, conversion, field, precision, value);
    } else {
        AppendFinite(output, conversion, field, precision < 0 ? 6 : precision, value.floating);
    }
}

void AppendPointer(Output& output, Field field, const void* pointer) {
    char digits[sizeof pointer * 2];
    const auto result = std::to_chars(digits, std::end(digits), reinterpret_cast<uintptr_t>(pointer), 16);
    output.AppendNumber(field, "0x", 0, {digits, result.ptr});
}

} // namespace format
