// The format language: conversions as they are written, and the arguments that they take.
#pragma once

#include "platform/types.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace format {

enum class Length : uint8_t { None, Char, Short, Long, LongLong, IntMax, Size, Pointer, LongDouble };

// What a letter asks for.
enum class Kind : uint8_t {
    Unknown,
    Signed,
    Unsigned,
    Octal,
    Hexadecimal,
    Floating,
    Byte,
    Unit,
    Bytes,
    CountedBytes,
    Units,
    Address,
    Object,
    Nothing,
};

constexpr Kind KindOf(char letter) {
    switch (letter) {
    case 'd':
    case 'i':
    case 'D':
        return Kind::Signed;
    case 'u':
    case 'U':
        return Kind::Unsigned;
    case 'o':
    case 'O':
        return Kind::Octal;
    case 'x':
    case 'X':
        return Kind::Hexadecimal;
    case 'a':
    case 'A':
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
        return Kind::Floating;
    case 'c':
        return Kind::Byte;
    case 'C':
        return Kind::Unit;
    case 's':
        return Kind::Bytes;
    case 'P':
        return Kind::CountedBytes;
    case 'S':
        return Kind::Units;
    case 'p':
        return Kind::Address;
    case '@':
        return Kind::Object;
    case 'n':
        return Kind::Nothing;
    default:
        return Kind::Unknown;
    }
}

// A width or precision.
struct Number {
    int32_t value = kNone;
    bool isArgument = false;
    uint32_t position = 0; // of the argument, from 1; 0 for the next

    static constexpr int32_t kNone = -1;
};

// One conversion, from behind its percent sign.
struct Conversion {
    char letter = 0;
    Kind kind = Kind::Unknown;
    Length length = Length::None;
    bool left = false, plus = false, space = false, alternate = false, zero = false;
    bool hasPoint = false;
    uint32_t position = 0; // of the argument, from 1; 0 for the next
    Number width, precision;
};

enum class Found {
    Conversion,
    Unknown,    // a letter that means nothing
    Incomplete, // the format ends first
    TooGreat,   // a width, precision or position of more than 31 bits
};

// Reads the conversion at `place`, behind its percent sign, and steps over it.
Found Parse(const UniChar*& place, const UniChar* end, Conversion& conversion);

// What a conversion takes from the variable arguments.
// The integers come first.
enum class ArgumentType : uint8_t { None, Int, Long, LongLong, IntMax, Size, Pointer, Double, LongDouble };

ArgumentType TypeOf(const Conversion& conversion);

// An argument; integers are extended from the sign of their type. Passed by reference only, since compilers differ
// in how they pass such a union.
union Value {
    int64_t integer;
    double floating;
    long double longFloating;
    const void* pointer;
};

// The arguments of one format, in the order in which its conversions ask for them.
class Arguments {
public:
    // A copy of `list` is used up. Reads ahead when conversions name positions; ok() tells whether that
    // worked.
    Arguments(const UniChar* format, size_t length, va_list list);
    ~Arguments();
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    bool ok() const { return ok_; }

    // Gives the argument of a type at a position, from 1, or the next one for 0. A position beyond the number of
    // arguments that the format uses counts as the next. An argument that an earlier conversion names as one of
    // another kind (integer, pointer, floating) counts as zero, since it cannot be read as both.
    void Take(ArgumentType type, uint32_t position, Value& value);

private:
    bool ReadPositions(const UniChar* format, const UniChar* end);
    void Note(ArgumentType type, uint32_t position);
    void Fetch(ArgumentType type, Value& value);

    static constexpr size_t kFewValues = 16;

    struct Slot {
        ArgumentType type;
        Value value;
    };

    va_list list_;
    bool ok_ = true;
    size_t count_ = 0; // values that the conversions ask for
    size_t used_ = 0;  // arguments up to the last that is asked for
    size_t next_ = 0;
    Slot* slots_ = nullptr; // null when every conversion takes the next argument
    Slot fewSlots_[kFewValues];
};

} // namespace format
