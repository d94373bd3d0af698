// The string service's creation, release and copying out. Strings hold UTF-16 as it comes, lone surrogates
// included; nothing is composed or decomposed. UTF-8 is strict, but that bytes which are no text become units
// U+DC80 to U+DCFF and back, as in names, so that every path of the host is a text; Mac Roman has a table of
// its own (mac_roman.cpp); letter case is in strings_case.cpp. Where a text does not fit or cannot be
// encoded, the bytes behind the empty result are left as the platform leaves them: an ASCII text is not begun
// at all, any other is written as far as it went. Order: objects, creation, appending, copying out.
#include "platform/strings.h"

#include "platform/linux/ascii.h"
#include "platform/linux/mac_roman.h"
#include "platform/linux/names.h"
#include "platform/linux/string_object.h"

#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <limits>

namespace {

// Mutable strings start with this much room: enough for most names and paths.
constexpr size_t kFirstRoom = 240;

bool DecodeMacRoman(const char* bytes, size_t n, UniChar* units) {
    for (size_t i = 0; i < n; ++i) {
        const int unit = mac_roman::Decode(static_cast<uint8_t>(bytes[i]));
        if (unit < 0) return false;
        units[i] = static_cast<UniChar>(unit);
    }
    return true;
}

// Decodes n bytes into at most n units; how many, or -1 when the bytes are not text in the encoding.
ptrdiff_t Decode(const char* bytes, size_t n, CFStringEncoding encoding, UniChar* units) {
    if (encoding == kCFStringEncodingMacRoman) {
        return DecodeMacRoman(bytes, n, units) ? static_cast<ptrdiff_t>(n) : -1;
    }
    if (encoding != kCFStringEncodingUTF8 || n > std::numeric_limits<int32_t>::max()) return -1;
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(units, static_cast<int32_t>(n), &length, bytes, static_cast<int32_t>(n), &status);
    return U_SUCCESS(status) ? length : static_cast<ptrdiff_t>(UnitsFromBytes(bytes, n, units, n));
}

// How many units from a position on stand for bytes that are no text, counted up to the longest sequence of
// UTF-8.
size_t StrayBytes(const OpaqueCFString* string, size_t position) {
    size_t end = std::min(string->length, position + U8_MAX_LENGTH), n = position;
    while (n < end && string->units[n] >= 0xDC80 && string->units[n] <= 0xDCFF) ++n;
    return n - position;
}

// Bytes of one character, at most four, and steps over it; 0 when the encoding has none.
size_t EncodeCharacter(const OpaqueCFString* string, size_t& position, CFStringEncoding encoding,
                       uint8_t* bytes) {
    if (encoding == kCFStringEncodingMacRoman) {
        const int byte = mac_roman::Encode(string->units, string->length, position);
        bytes[0] = static_cast<uint8_t>(byte);
        return byte >= 0 ? 1 : 0;
    }
    if (encoding != kCFStringEncodingUTF8) return 0;
    UChar32 c = 0;
    U16_NEXT(string->units, position, string->length, c);
    size_t n = 0;
    if (U_IS_SURROGATE(c)) {
        // Names may hold bytes that are no text. What would read as text behind them is no name of the host.
        const size_t stray = StrayBytes(string, position - 1);
        if (BytesFromUnits(string->units + position - 1, stray, nullptr, 0) != stray) return 0;
        if (stray > 0) bytes[n++] = static_cast<uint8_t>(c);
        return n;
    }
    U8_APPEND_UNSAFE(bytes, n, c);
    return n;
}

// Writes as many whole characters as `room` bytes hold; true when that was all of them.
bool Encode(const OpaqueCFString* string, char* buffer, size_t room, CFStringEncoding encoding) {
    size_t written = 0;
    // The beginning of a path is mostly ASCII up to its end.
    const size_t most = encoding == kCFStringEncodingUTF8 ? std::min(room, string->length) : 0;
    for (; written < most && string->units[written] < 0x80; ++written)
        buffer[written] = static_cast<char>(string->units[written]);
    for (size_t position = written; position < string->length;) {
        uint8_t bytes[U8_MAX_LENGTH];
        const size_t n = EncodeCharacter(string, position, encoding, bytes);
        if (n == 0 || n > room - written) return false;
        memcpy(buffer + written, bytes, n);
        written += n;
    }
    buffer[written] = 0;
    return true;
}

} // namespace

void CFRelease(CFTypeRef object) {
    if (!object) return;
    auto* released = const_cast<CFObject*>(static_cast<const CFObject*>(object));
    released->kind->release(released);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* chars, CFIndex numChars) {
    assert(numChars >= 0);
    OpaqueCFString* string = strings::Allocate(static_cast<size_t>(numChars), false);
    if (!string) return nullptr;
    string->length = static_cast<size_t>(numChars);
    if (numChars > 0) memcpy(string->units, chars, string->length * sizeof(UniChar));
    return string;
}

CFStringRef CFStringCreateWithCharactersNoCopy(CFAllocatorRef allocator, const UniChar* chars,
                                               CFIndex numChars,
                                               [[maybe_unused]] CFAllocatorRef contentsDeallocator) {
    assert(allocator && numChars >= 0 && contentsDeallocator == kCFAllocatorNull);
    allocator->string = {&__CFConstantStringClassReference, static_cast<size_t>(numChars), chars, false};
    return CFSTR(allocator->string);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* cStr, CFStringEncoding encoding) {
    const size_t n = strlen(cStr);
    OpaqueCFString* string = strings::Allocate(n, false);
    if (!string) return nullptr;
    const ptrdiff_t length = Decode(cStr, n, encoding, string->units);
    if (length < 0) {
        CFRelease(string);
        return nullptr;
    }
    string->length = static_cast<size_t>(length);
    return string;
}

CFMutableStringRef CFStringCreateMutable(CFAllocatorRef, CFIndex) {
    return strings::Allocate(kFirstRoom, true);
}

void CFStringAppendCharacters(CFMutableStringRef string, const UniChar* chars, CFIndex numChars) {
    assert(numChars >= 0);
    const size_t n = static_cast<size_t>(numChars);
    if (n == 0 || !strings::Reserve(string, string->length + n)) return;
    memcpy(string->units + string->length, chars, n * sizeof(UniChar));
    string->length += n;
}

void CFStringAppendCString(CFMutableStringRef string, const char* cStr, CFStringEncoding encoding) {
    const size_t n = strlen(cStr);
    if (!strings::Reserve(string, string->length + n)) return;
    const ptrdiff_t length = Decode(cStr, n, encoding, string->units + string->length);
    if (length > 0) string->length += static_cast<size_t>(length);
}

CFIndex CFStringGetLength(CFStringRef string) {
    return static_cast<CFIndex>(string->length);
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer) {
    assert(range.location >= 0 && range.length >= 0);
    assert(static_cast<size_t>(range.location + range.length) <= string->length);
    memcpy(buffer, string->units + range.location, static_cast<size_t>(range.length) * sizeof(UniChar));
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding) {
    if (bufferSize <= 0) return 0;
    const size_t room = static_cast<size_t>(bufferSize) - 1;
    // kept: an ASCII text made in one go is not begun when it does not fit; one that was put together is.
    const bool begin =
        string->isMutable || string->length <= room || !ascii::IsAscii(string->units, string->length);
    if (begin && Encode(string, buffer, room, encoding)) return 1;
    buffer[0] = 0;
    return 0;
}
