// The string service: immutable and mutable 16-bit strings with full Unicode case rules.
#pragma once

#include "platform/types.h"

#include <cstdarg>

using CFIndex = long;
using CFTypeRef = const void*;
using CFAllocatorRef = const struct OpaqueCFAllocator*;
using CFStringRef = const struct OpaqueCFString*;
using CFMutableStringRef = struct OpaqueCFString*;
using CFLocaleRef = const struct OpaqueCFLocale*;
using CFStringEncoding = uint32_t;
using CFOptionFlags = uint32_t;
using CFComparisonResult = int32_t;

constexpr CFStringEncoding kCFStringEncodingMacRoman = 0;
constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;

constexpr CFOptionFlags kCFCompareCaseInsensitive = 1;

constexpr CFComparisonResult kCFCompareLessThan = -1;
constexpr CFComparisonResult kCFCompareEqualTo = 0;
constexpr CFComparisonResult kCFCompareGreaterThan = 1;

struct CFRange {
    CFIndex location;
    CFIndex length;
};

constexpr CFIndex kCFNotFound = -1;

struct CFKind;

extern "C" const CFKind __CFConstantStringClassReference;

// A string that is laid out by the compiler: it lives as long as the library and is not released. `kind` is
// the address of __CFConstantStringClassReference.
struct CFConstantString {
    const CFKind* kind;
    size_t length;
    const UniChar* units;
    bool isMutable; // false
};

inline CFStringRef CFSTR(const CFConstantString& string) {
    return reinterpret_cast<CFStringRef>(&string);
}

// An allocator with room for one string, which borrows its units: texts that are looked at once need no heap.
struct OpaqueCFAllocator {
    mutable CFConstantString string;
};

// Whoever made the units keeps them.
constexpr CFAllocatorRef kCFAllocatorNull = nullptr;

extern "C" {

// Creation gives null when memory runs out or the encoding is unknown. In UTF-8, bytes that are no text
// become units U+DC80 to U+DCFF, as in names, and those units become bytes again. The caller releases the
// result. The allocator is null but for strings without a copy: it then holds the string, and must live as
// long as that, as must the units; `contentsDeallocator` is kCFAllocatorNull.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* chars, CFIndex numChars);
CFStringRef CFStringCreateWithCharactersNoCopy(CFAllocatorRef allocator, const UniChar* chars,
                                               CFIndex numChars, CFAllocatorRef contentsDeallocator);
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* cStr, CFStringEncoding encoding);
CFMutableStringRef CFStringCreateMutable(CFAllocatorRef allocator, CFIndex maxLength);

// Gives back one ownership; null is ignored.
void CFRelease(CFTypeRef object);

void CFStringAppendCharacters(CFMutableStringRef string, const UniChar* chars, CFIndex numChars);
void CFStringAppendCString(CFMutableStringRef string, const char* cStr, CFStringEncoding encoding);

// Whole-string case conversion without a locale; the length may change.
void CFStringUppercase(CFMutableStringRef string, CFLocaleRef locale);
void CFStringLowercase(CFMutableStringRef string, CFLocaleRef locale);

CFIndex CFStringGetLength(CFStringRef string);

// Copies the units in `range`; writes no terminator.
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);

// Writes the text, zero-terminated, in the encoding. 1 when all of it and the terminator fitted.
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding);

// Compares by Unicode's full case folding, code point by code point; `options` is kCFCompareCaseInsensitive.
CFComparisonResult CFStringCompare(CFStringRef string1, CFStringRef string2, CFOptionFlags options);

// The number at the start of the text, behind spaces and one sign; 0 when there is none. Numbers beyond 32
// bits give the limit, numbers beyond a double's range infinity or 0. Digits are ASCII, the point is a point
// in every locale.
int32_t CFStringGetIntValue(CFStringRef string);
double CFStringGetDoubleValue(CFStringRef string);

// The first occurrence of `toFind` that lies within `range`, unit by unit: gives 1 and sets `result`, or gives 0
// and leaves it. `options` is 0.
Boolean CFStringFindWithOptions(CFStringRef string, CFStringRef toFind, CFRange range, CFOptionFlags options,
                                CFRange* result);

// Puts `replacement` in the place of the units in `range`; no change when memory runs out.
void CFStringReplace(CFMutableStringRef string, CFRange range, CFStringRef replacement);

// Formats as the C library does, without a locale, with "%@" for the service's objects, "%S" and "%C" for
// 16-bit texts and units (neither "%s" nor "%c" is 16-bit here) and "%P" for texts that begin with their
// length in a byte; 8-bit text is Mac Roman. "%n" stores nothing. A conversion that does not exist prints the
// character behind its percent sign; one that the format ends in prints nothing. Null when memory runs out.
// `options` is null. `arguments` is used up.
CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef allocator, CFTypeRef options,
                                                 CFStringRef format, va_list arguments);

} // extern "C"
