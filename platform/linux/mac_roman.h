// Mac Roman, one character at a time.
#pragma once

#include "platform/types.h"

#include <cstddef>

namespace mac_roman {

// The unit that a byte stands for, -1 when the table cannot be had.
int Decode(uint8_t byte);

// Takes the character at units[position], together with a combining mark behind it when Mac Roman has both as
// one letter, and steps over it; its byte, or -1 when Mac Roman has none.
int Encode(const UniChar* units, size_t length, size_t& position);

} // namespace mac_roman
