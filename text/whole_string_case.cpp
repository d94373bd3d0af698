// Letter case of whole texts, by the platform's rules for every script.
#include "platform/strings.h"
#include "text/inline_helpers.h"

#include <algorithm>
#include <cstring>

namespace {

using CaseConversion = void (*)(CFMutableStringRef, CFLocaleRef);

// Compares two platform strings and releases both; a missing one makes the answer -1.
int32_t CompareAndRelease(CFStringRef a, CFStringRef b) {
    int32_t result = kCFCompareLessThan;
    if (a && b) result = CFStringCompare(a, b, kCFCompareCaseInsensitive);
    if (a) CFRelease(a);
    if (b) CFRelease(b);
    return result;
}

// A platform string that borrows a text.
CFStringRef MakeString(OpaqueCFAllocator& room, const TavChar* s) {
    return CFStringCreateWithCharactersNoCopy(&room, s, static_cast<CFIndex>(tav_wcslen(s)),
                                              kCFAllocatorNull);
}

CFStringRef MakeString(const char* s) {
    return CFStringCreateWithCString(nullptr, s, kCFStringEncodingMacRoman);
}

TavChar* Convert(TavChar* s, CaseConversion conversion) {
    CFMutableStringRef text = CFStringCreateMutable(nullptr, 0);
    if (!text) return s;
    const CFIndex length = static_cast<CFIndex>(tav_wcslen(s));
    CFStringAppendCharacters(text, s, length);
    conversion(text, nullptr);
    // kept: the text keeps its length and its terminator, however long the converted form is.
    CFStringGetCharacters(text, CFRangeMake(0, std::min(length, CFStringGetLength(text))), s);
    CFRelease(text);
    return s;
}

char* Convert(char* s, CaseConversion conversion) {
    CFMutableStringRef text = CFStringCreateMutable(nullptr, 0);
    if (!text) return s;
    const CFIndex length = static_cast<CFIndex>(strlen(s));
    CFStringAppendCString(text, s, kCFStringEncodingMacRoman);
    // One byte is one unit; fewer mean that memory ran out.
    if (CFStringGetLength(text) == length) {
        conversion(text, nullptr);
        CFStringGetCString(text, s, length + 1, kCFStringEncodingMacRoman);
    }
    CFRelease(text);
    return s;
}

} // namespace

int32_t tav_wcscmpi(const TavChar* a, const TavChar* b) {
    OpaqueCFAllocator roomA, roomB;
    return CompareAndRelease(MakeString(roomA, a), MakeString(roomB, b));
}

int32_t tav_strcmpi(const char* a, const char* b) {
    return CompareAndRelease(MakeString(a), MakeString(b));
}

TavChar* tav_wcsupr(TavChar* s) {
    return Convert(s, CFStringUppercase);
}
TavChar* tav_wcslwr(TavChar* s) {
    return Convert(s, CFStringLowercase);
}
char* tav_strupr(char* s) {
    return Convert(s, CFStringUppercase);
}
char* tav_strlwr(char* s) {
    return Convert(s, CFStringLowercase);
}
