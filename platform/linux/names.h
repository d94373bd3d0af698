// Names: 16-bit units on the platform's side, bytes on the host's.
//
// The bytes are UTF-8. In a name ":" and "/" change places, since the platform separates with ":". Bytes that
// are not UTF-8 stand one by one as lone low surrogates U+DC80 to U+DCFF, so that every name of the host has
// a name here.
#pragma once

#include "platform/types.h"

#include <cstddef>

constexpr size_t kMaxNameBytes = 255;

// The bytes of one name, zero-terminated. -37 for a name of no or more than 255 units, for one that holds ":"
// or a zero, that is "." or ".." on the host, that does not fit in 255 bytes, or that no bytes stand for.
OSErr BytesFromName(const UniChar* units, UniCharCount length, char (&bytes)[kMaxNameBytes + 1]);

// The units of a name of the host; always fits.
void NameFromBytes(const char* bytes, HFSUniStr255& name);

// Text without the exchange of ":" and "/": paths. Each writes no terminator and gives the number of elements
// needed, writing only what fits in `capacity`; `BytesFromUnits` gives kNotText for units that no bytes stand
// for.
constexpr size_t kNotText = static_cast<size_t>(-1);
size_t BytesFromUnits(const UniChar* units, size_t length, char* bytes, size_t capacity);
size_t UnitsFromBytes(const char* bytes, size_t length, UniChar* units, size_t capacity);
