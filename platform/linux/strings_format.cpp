// Search, replacement and formatting of strings. The format language is that of the platform's formatter,
// which is the C library's with texts and units of 16 bits and objects added; numbers come out as in the "C"
// locale, 8-bit text is Mac Roman. Three oddities are the platform's own: an unknown conversion prints the
// character behind its percent sign; "%C" and "%@" ignore width and precision; a "%c" beyond ASCII is its own
// number as long as nothing else in the result is beyond ASCII, and Mac Roman otherwise. "%n" stores nothing.
// Order: search and replacement, conversions of text, the formatter.
#include "platform/strings.h"

#include "platform/linux/format_language.h"
#include "platform/linux/format_numbers.h"
#include "platform/linux/format_output.h"
#include "platform/linux/mac_roman.h"
#include "platform/linux/string_object.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <string_view>

namespace {

using format::Conversion;
using format::Field;
using format::Found;
using format::Output;

using View = std::basic_string_view<UniChar>;

View ViewOf(CFStringRef string) {
    return {string->units, string->length};
}

// How a "%c" beyond ASCII is read.
enum class Bytes { Numbers, MacRoman };

class Formatter {
public:
    Formatter(CFStringRef format, va_list arguments, Bytes bytes)
        : format_(ViewOf(format)), arguments_(format->units, format->length, arguments), output_(kFirstRoom),
          bytes_(bytes) {}

    // Formats everything; Finish gives the result.
    void Run();

    // Whether bytes were taken as numbers beside other text that is not ASCII.
    bool MixedBytes() const {
        return bytesBeyondAscii_ > 0 && bytesBeyondAscii_ != output_.CountBeyondAscii();
    }

    CFStringRef Finish() { return arguments_.ok() ? output_.Finish() : nullptr; }

private:
    // Enough for ordinary results to cost one allocation.
    static constexpr size_t kFirstRoom = 240;

    void AppendConversion(const Conversion& conversion);
    void AppendText(const Conversion& conversion, Field field, int32_t precision, const void* text);
    void AppendByte(Field field, uint8_t byte);
    void AppendObject(CFTypeRef object);

    // The value of a width or precision.
    int32_t NumberOf(const format::Number& number);

    View format_;
    format::Arguments arguments_;
    Output output_;
    Bytes bytes_;
    size_t bytesBeyondAscii_ = 0;
};

void Formatter::Run() {
    const UniChar* place = format_.data();
    const UniChar* end = place + format_.size();
    while (place < end && output_.ok() && arguments_.ok()) {
        const UniChar* percent = std::find(place, end, u'%');
        output_.Append(place, static_cast<size_t>(percent - place));
        if (percent == end) return;
        place = percent + 1;
        Conversion conversion;
        switch (format::Parse(place, end, conversion)) {
        case Found::Conversion:
            AppendConversion(conversion);
            break;
        case Found::Unknown:
            output_.Append(percent + 1, 1);
            break;
        case Found::Incomplete:
            return;
        case Found::TooGreat:
            return output_.Fail();
        }
    }
}

int32_t Formatter::NumberOf(const format::Number& number) {
    if (!number.isArgument) return number.value;
    format::Value value;
    arguments_.Take(format::ArgumentType::Int, number.position, value);
    return static_cast<int32_t>(value.integer);
}

void Formatter::AppendConversion(const Conversion& conversion) {
    const int64_t width =
        conversion.width.isArgument ? int64_t{NumberOf(conversion.width)} : conversion.width.value;
    // A negative width from an argument is a flag and a width.
    const bool isNegative = conversion.width.isArgument && width < 0;
    Field field;
    field.width = static_cast<size_t>(isNegative ? -width : std::max<int64_t>(width, 0));
    field.left = conversion.left || isNegative;
    field.zeroFilled = conversion.zero && !field.left;
    const int32_t precision = NumberOf(conversion.precision);
    format::Value value;
    arguments_.Take(TypeOf(conversion), conversion.position, value);
    // A point without digits is a precision of 0, but for texts of 16 bits, where it is none.
    const bool emptyPrecision = conversion.hasPoint && !conversion.precision.isArgument && precision < 0;
    const int32_t cPrecision = emptyPrecision ? 0 : precision;

    using format::Kind;
    switch (conversion.kind) {
    case Kind::Bytes:
    case Kind::CountedBytes:
        return AppendText(conversion, field, cPrecision, value.pointer);
    case Kind::Units:
        return AppendText(conversion, field, precision, value.pointer);
    case Kind::Byte:
        return AppendByte(field, static_cast<uint8_t>(value.integer));
    case Kind::Unit:
        return output_.AppendFill(static_cast<UniChar>(value.integer), 1);
    case Kind::Object:
        return AppendObject(value.pointer);
    case Kind::Address:
        return AppendPointer(output_, field, value.pointer);
    case Kind::Floating:
        return AppendFloating(output_, conversion, field, cPrecision, value);
    case Kind::Nothing:
    case Kind::Unknown:
        return;
    default:
        return AppendInteger(output_, conversion, field, cPrecision, value.integer);
    }
}

// Units or bytes before the terminator, at most `limit` when that is not negative: no more are looked at.
template <typename Unit>
size_t LengthWithin(const Unit* text, int32_t limit) {
    size_t n = 0;
    while ((limit < 0 || n < static_cast<size_t>(limit)) && text[n]) ++n;
    return n;
}

void Formatter::AppendText(const Conversion& conversion, Field field, int32_t precision, const void* text) {
    if (!text) return output_.Append("(null)");
    if (conversion.kind == format::Kind::Units) {
        const auto* units = static_cast<const UniChar*>(text);
        return output_.AppendUnits(field, units, LengthWithin(units, precision));
    }
    const auto* bytes = static_cast<const char*>(text);
    if (conversion.kind == format::Kind::Bytes)
        return output_.AppendMacRoman(field, bytes, LengthWithin(bytes, precision));
    const size_t length = static_cast<uint8_t>(*bytes);
    output_.AppendMacRoman(field, bytes + 1,
                           precision < 0 ? length : std::min(length, static_cast<size_t>(precision)));
}

void Formatter::AppendByte(Field field, uint8_t byte) {
    if (byte == 0) {
        // The C library's zero takes a place of the field and ends what is seen of it.
        return output_.AppendFill(u' ', field.left || field.width == 0 ? 0 : field.width - 1);
    }
    if (byte < 0x80 || bytes_ == Bytes::MacRoman) {
        const char text = static_cast<char>(byte);
        return output_.AppendMacRoman(field, &text, 1);
    }
    ++bytesBeyondAscii_;
    const UniChar unit = byte;
    output_.AppendUnits(field, &unit, 1);
}

void Formatter::AppendObject(CFTypeRef object) {
    if (!object) return output_.Append("(null)");
    if (strings::IsString(object)) {
        const View text = ViewOf(static_cast<CFStringRef>(object));
        return output_.Append(text.data(), text.size());
    }
    output_.Append("<");
    output_.Append(static_cast<const CFObject*>(object)->kind->name);
    output_.Append(">");
}

} // namespace

Boolean CFStringFindWithOptions(CFStringRef string, CFStringRef toFind, CFRange range,
                                [[maybe_unused]] CFOptionFlags options, CFRange* result) {
    assert(options == 0 && range.location >= 0 && range.length >= 0);
    const auto location = static_cast<size_t>(range.location), length = static_cast<size_t>(range.length);
    assert(location + length <= string->length);
    const View text = ViewOf(string).substr(location, length), sought = ViewOf(toFind);
    const auto at = std::search(text.begin(), text.end(), sought.begin(), sought.end());
    if (at == text.end() && !sought.empty()) return false;
    *result = {range.location + (at - text.begin()), static_cast<CFIndex>(sought.size())};
    return true;
}

void CFStringReplace(CFMutableStringRef string, CFRange range, CFStringRef replacement) {
    assert(string->isMutable && range.location >= 0 && range.length >= 0);
    const auto location = static_cast<size_t>(range.location), removed = static_cast<size_t>(range.length);
    assert(location + removed <= string->length);
    const View inserted = ViewOf(replacement);
    const size_t length = string->length - removed + inserted.size();
    if (!strings::Reserve(string, length)) return;
    UniChar* place = string->units + location;
    const size_t behind = string->length - location - removed;
    if (removed != inserted.size())
        memmove(place + inserted.size(), place + removed, behind * sizeof(UniChar));
    memmove(place, inserted.data(), inserted.size() * sizeof(UniChar));
    string->length = length;
}

CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef, CFTypeRef, CFStringRef format,
                                                 va_list arguments) {
    Formatter formatter(format, arguments, Bytes::Numbers);
    formatter.Run();
    if (!formatter.MixedBytes()) return formatter.Finish();
    Formatter again(format, arguments, Bytes::MacRoman);
    again.Run();
    return again.Finish();
}
