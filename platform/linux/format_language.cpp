// Reading formats and their arguments. Formats without positions are read once, from left to right; those
// with positions are read twice, because an argument can be fetched only when the types of all before it are
// known. Order: the language, then the arguments.
#include "platform/linux/format_language.h"

#include <algorithm>
#include <limits>
#include <new>

namespace format {

namespace {

constexpr bool IsDigit(UniChar c) {
    return c >= '0' && c <= '9';
}

// Takes a decimal number; false when it has more than 31 bits.
bool TakeNumber(const UniChar*& place, const UniChar* end, int32_t& number) {
    int64_t value = 0;
    for (; place < end && IsDigit(*place); ++place) {
        value = value * 10 + (*place - '0');
        if (value > std::numeric_limits<int32_t>::max()) return false;
    }
    number = static_cast<int32_t>(value);
    return true;
}

bool TakeFlag(UniChar c, Conversion& conversion) {
    switch (c) {
    case '-':
        return conversion.left = true;
    case '+':
        return conversion.plus = true;
    case ' ':
        return conversion.space = true;
    case '#':
        return conversion.alternate = true;
    default:
        return false;
    }
}

bool TakeLength(UniChar c, Length& length) {
    switch (c) {
    case 'h':
        length = length == Length::Short ? Length::Char : Length::Short;
        return true;
    case 'l':
        length = length == Length::Long ? Length::LongLong : Length::Long;
        return true;
    case 'q':
        length = Length::LongLong;
        return true;
    case 'j':
        length = Length::IntMax;
        return true;
    case 'z':
        length = Length::Size;
        return true;
    case 't':
        length = Length::Pointer;
        return true;
    case 'L':
        length = Length::LongDouble;
        return true;
    default:
        return false;
    }
}

bool TakeLetter(UniChar c, Conversion& conversion) {
    conversion.letter = static_cast<char>(c);
    conversion.kind = c < 0x80 ? KindOf(conversion.letter) : Kind::Unknown;
    return conversion.kind != Kind::Unknown;
}

// Takes digits: the position before a "$", the precision behind a point, else the width.
bool TakeDigits(const UniChar*& place, const UniChar* end, Conversion& conversion) {
    int32_t number = 0;
    if (!TakeNumber(place, end, number)) return false;
    if (place < end && *place == '$') {
        ++place;
        conversion.position = static_cast<uint32_t>(number);
    } else {
        (conversion.hasPoint ? conversion.precision : conversion.width).value = number;
    }
    return true;
}

// Takes what follows a "*": the position of its argument, if there is one.
bool TakeStar(const UniChar*& place, const UniChar* end, Number& number) {
    number = {Number::kNone, true, 0};
    const UniChar* digits = place;
    int32_t position = 0;
    if (!TakeNumber(place, end, position)) return false;
    if (place < end && *place == '$') {
        ++place;
        number.position = static_cast<uint32_t>(position);
    } else {
        place = digits;
    }
    return true;
}

} // namespace

Found Parse(const UniChar*& place, const UniChar* end, Conversion& conversion) {
    while (place < end) {
        const UniChar c = *place;
        const bool zeroFlag = c == '0' && !conversion.hasPoint && conversion.width.value == Number::kNone;
        if (IsDigit(c) && !zeroFlag) {
            if (!TakeDigits(place, end, conversion)) return Found::TooGreat;
            continue;
        }
        ++place;
        if (c == '*') {
            Number& number = conversion.hasPoint ? conversion.precision : conversion.width;
            if (!TakeStar(place, end, number)) return Found::TooGreat;
        } else if (zeroFlag) {
            conversion.zero = true;
        } else if (c == '.') {
            conversion.hasPoint = true;
        } else if (TakeLetter(c, conversion)) {
            return Found::Conversion;
        } else if (!TakeFlag(c, conversion) && !TakeLength(c, conversion.length)) {
            return Found::Unknown;
        }
    }
    return Found::Incomplete;
}

static ArgumentType IntegerTypeOf(const Conversion& conversion) {
    switch (conversion.length) {
    case Length::Long:
        return ArgumentType::Long;
    case Length::LongLong:
    case Length::LongDouble:
        return ArgumentType::LongLong;
    case Length::IntMax:
        return ArgumentType::IntMax;
    case Length::Size:
    case Length::Pointer:
        return ArgumentType::Size;
    default:
        break;
    }
    return ArgumentType::Int; // also for D, U and O, which are no long ones here
}

ArgumentType TypeOf(const Conversion& conversion) {
    switch (conversion.kind) {
    case Kind::Signed:
    case Kind::Unsigned:
    case Kind::Octal:
    case Kind::Hexadecimal:
        return IntegerTypeOf(conversion);
    case Kind::Floating:
        return conversion.length == Length::LongDouble ? ArgumentType::LongDouble : ArgumentType::Double;
    case Kind::Unknown:
    case Kind::Byte:
    case Kind::Unit:
        return ArgumentType::Int;
    default:
        return ArgumentType::Pointer;
    }
}

Arguments::Arguments(const UniChar* format, size_t length, va_list list) {
    va_copy(list_, list);
    const UniChar* end = format + length;
    if (std::find(format, end, u'$') != end) ok_ = ReadPositions(format, end);
}

Arguments::~Arguments() {
    if (slots_ != fewSlots_) delete[] slots_;
    va_end(list_);
}

static bool IsInteger(ArgumentType type) {
    return type <= ArgumentType::Size;
}

void Arguments::Take(ArgumentType type, uint32_t position, Value& value) {
    if (!slots_) return Fetch(type, value);
    const size_t index = position > 0 && position <= count_ ? position - 1 : next_++;
    const Slot& slot = slots_[index];
    const bool isAsNamed = slot.type == type || (IsInteger(slot.type) && IsInteger(type));
    value = isAsNamed ? slot.value : Value();
}

// Notes the type of every argument, then fetches them all.
bool Arguments::ReadPositions(const UniChar* format, const UniChar* end) {
    // Each value costs at least one unit of the format.
    const auto room = static_cast<size_t>(end - format);
    slots_ = room <= kFewValues ? fewSlots_ : new (std::nothrow) Slot[room];
    if (!slots_) return false;
    std::fill_n(slots_, room, Slot{ArgumentType::None, {}});
    for (const bool counting : {true, false}) {
        next_ = 0;
        for (const UniChar* place = std::find(format, end, u'%'); place != end;
             place = std::find(place, end, u'%')) {
            Conversion conversion;
            if (Parse(++place, end, conversion) != Found::Conversion) continue;
            const size_t values = size_t{1} + conversion.width.isArgument + conversion.precision.isArgument;
            if (counting) {
                count_ += values;
                continue;
            }
            if (conversion.width.isArgument) Note(ArgumentType::Int, conversion.width.position);
            if (conversion.precision.isArgument) Note(ArgumentType::Int, conversion.precision.position);
            Note(TypeOf(conversion), conversion.position);
        }
    }
    for (size_t i = 0; i < used_; ++i) Fetch(slots_[i].type, slots_[i].value);
    next_ = 0;
    return true;
}

void Arguments::Note(ArgumentType type, uint32_t position) {
    const size_t index = position > 0 && position <= count_ ? position - 1 : next_++;
    if (slots_[index].type == ArgumentType::None) slots_[index].type = type;
    used_ = std::max(used_, index + 1);
}

void Arguments::Fetch(ArgumentType type, Value& value) {
    value = {};
    switch (type) {
    case ArgumentType::None:
    case ArgumentType::Int:
        value.integer = va_arg(list_, int);
        break;
    case ArgumentType::Long:
        value.integer = va_arg(list_, long);
        break;
    case ArgumentType::LongLong:
        value.integer = va_arg(list_, long long);
        break;
    case ArgumentType::IntMax:
        value.integer = va_arg(list_, intmax_t);
        break;
    case ArgumentType::Size:
        value.integer = va_arg(list_, ptrdiff_t);
        break;
    case ArgumentType::Pointer:
        value.pointer = va_arg(list_, const void*);
        break;
    case ArgumentType::Double:
        value.floating = va_arg(list_, double);
        break;
    case ArgumentType::LongDouble:
        value.longFloating = va_arg(list_, long double);
        break;
    }
}

} // namespace format
