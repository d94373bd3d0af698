// The tables behind the functions for one character, each indexed by a value from 0x00 to 0xFF.
#pragma once

#include "TavPort.h"

#include <array>

using CharacterTable = std::array<uint16_t, 256>;

// ASCII letters in the other case, everything else as it is.
extern const CharacterTable __wupper_mapC;
extern const CharacterTable __wlower_mapC;

// Class bits. Only the blank bit is tested by no function; no value from 0x80 upwards belongs to a class.
extern const CharacterTable __wctype_mapC;

enum CharacterClass : uint16_t {
    kAlpha = 0x001,
    kBlank = 0x002,
    kCntrl = 0x004,
    kDigit = 0x008,
    kGraph = 0x010,
    kLower = 0x020,
    kPrint = 0x040,
    kPunct = 0x080,
    kSpace = 0x100,
    kUpper = 0x200,
    kXDigit = 0x400,
};

// The entry of the character in the low 16 bits, when it is one of those that the table knows, as far as
// `mask` goes.
inline int32_t ClassesOf(uint32_t c, CharacterClass mask) {
    const uint32_t unit = c & 0xFFFF;
    return unit > 0xFF ? 0 : __wctype_mapC[unit] & mask;
}
