// The format language alone, with numbers of every size: what Parse reads lies within the format, and the arguments
// that positions name are fetched and given again.
#include "input.h"

#include "platform/linux/format_language.h"

#include <algorithm>
#include <cstdarg>

namespace {

// Few enough for the arguments that Take passes.
constexpr ptrdiff_t kMostConversions = 12;

using Text = std::basic_string<TavChar>;

void TakeNumber(format::Arguments& arguments, const format::Number& number) {
    format::Value value;
    if (number.isArgument) arguments.Take(format::ArgumentType::Int, number.position, value);
}

void Walk(const Text* text, ...) {
    va_list list;
    va_start(list, text);
    format::Arguments arguments(text->data(), text->size(), list);
    va_end(list);
    Expect(arguments.ok());
    const UniChar* end = text->data() + text->size();
    for (const UniChar* place = std::find(text->data(), end, u'%'); place != end;
         place = std::find(place, end, u'%')) {
        const UniChar* percent = place++;
        format::Conversion conversion;
        const format::Found found = format::Parse(place, end, conversion);
        Expect(place > percent && place <= end);
        Expect(found != format::Found::Incomplete || place == end);
        if (found != format::Found::Conversion) continue;
        Expect(conversion.kind == format::KindOf(conversion.letter));
        TakeNumber(arguments, conversion.width);
        TakeNumber(arguments, conversion.precision);
        format::Value value;
        arguments.Take(TypeOf(conversion), conversion.position, value);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Text text = Units(data, size);
    if (std::count(text.begin(), text.end(), u'%') > kMostConversions) return 0;
    constexpr int64_t z = 0;
    Walk(&text, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z,
         z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z, z);
    return 0;
}
