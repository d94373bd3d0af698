// Reading numbers from text: one engine that pulls its characters through a reader, and the functions around
// it. Results have 32 bits on every host. The forms with 16 in their names differ in the declared type of a
// unit only.
#pragma once

#include "TavPort.h"

// What a reader is asked to do.
enum ReadAction : int32_t {
    kReadNext = 0,  // the next character; kEndOfText at the end
    kReadBack = 1,  // takes back the last character, which it gives
    kReadAtEnd = 2, // whether the end has been met
};

// What a reader gives at the end of its text.
constexpr uint16_t kEndOfText = 0xFFFF;

using TavReader = TavChar (*)(void* state, TavChar c, int32_t action);
using TavReader16 = uint16_t (*)(void* state, uint16_t c, int32_t action);

// A reader's place in a terminated text.
struct TavStringScan {
    const TavChar* next;
    int32_t endSeen;
};

extern "C" {

// Readers of terminated texts; `state` is a TavStringScan. Other actions give 0.
TavChar tav__wStringRead(void* state, TavChar c, int32_t action);
uint16_t tav__wStringRead16(void* state, uint16_t c, int32_t action);

// Reads a number in `base` (0: by its prefix) of at most `maxWidth` characters and gives its value modulo
// 2^32. Stores how many characters belong to it, whether it had a "-", and whether it was too great. 0 and no
// characters when there is no number or the base is out of range.
uint32_t tav__wcstoul(int32_t base, int32_t maxWidth, TavReader reader, void* state, int32_t* charsScanned,
                      int32_t* negative, int32_t* overflow);
uint32_t tav__wcstoul16(int32_t base, int32_t maxWidth, TavReader16 reader, void* state,
                        int32_t* charsScanned, int32_t* negative, int32_t* overflow);

// The number at the start of a text; `end` may be null and else receives where the number ends. Too great a
// number gives the limit and sets errno to ERANGE.
uint32_t tav_wcstoul(const TavChar* s, TavChar** end, int32_t base);
uint32_t tav_wcstoul16(const TavChar* s, TavChar** end, int32_t base);
int32_t tav_wcstol(const TavChar* s, TavChar** end, int32_t base);
int32_t tav_wcstol16(const TavChar* s, TavChar** end, int32_t base);
int32_t tav_wtol(const TavChar* s);
int32_t tav_wtol16(const TavChar* s);

// What tav_wtoi does.
int32_t tav_wtoi16(const TavChar* s);

} // extern "C"
