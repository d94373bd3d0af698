// Formatting with 16-bit "%s" and "%c": the format is rewritten for the platform's formatter, where those are
// "%S" and "%C".
// kept: the rewriting is literal. "%10s" is not rewritten and takes 8-bit text, and "%%s" becomes "%%S".
#include "platform/strings.h"
#include "text/inline_helpers.h"

namespace {

constexpr size_t kPatternLength = 2;
constexpr UniChar kNarrowTextUnits[] = {'%', 's'};
constexpr UniChar kWideTextUnits[] = {'%', 'S'};
constexpr UniChar kNarrowUnitUnits[] = {'%', 'c'};
constexpr UniChar kWideUnitUnits[] = {'%', 'C'};

const CFConstantString kNarrowText = {&__CFConstantStringClassReference, kPatternLength, kNarrowTextUnits,
                                      false};
const CFConstantString kWideText = {&__CFConstantStringClassReference, kPatternLength, kWideTextUnits, false};
const CFConstantString kNarrowUnit = {&__CFConstantStringClassReference, kPatternLength, kNarrowUnitUnits,
                                      false};
const CFConstantString kWideUnit = {&__CFConstantStringClassReference, kPatternLength, kWideUnitUnits, false};

// Replaces each occurrence from the start on. No replacement makes a new one, so the search goes on behind it.
void ReplaceAll(CFMutableStringRef text, CFStringRef pattern, CFStringRef replacement) {
    const CFIndex length = CFStringGetLength(text);
    CFRange found = {0, 0};
    for (CFIndex at = 0; CFStringFindWithOptions(text, pattern, CFRangeMake(at, length - at), 0, &found);
         at = found.location + found.length)
        CFStringReplace(text, found, replacement);
}

// The formatted text; null when memory runs out.
CFStringRef Format(const TavChar* format, va_list args) {
    CFMutableStringRef rewritten = CFStringCreateMutable(nullptr, 0);
    if (!rewritten) return nullptr;
    CFStringAppendCharacters(rewritten, format, static_cast<CFIndex>(tav_wcslen(format)));
    ReplaceAll(rewritten, CFSTR(kNarrowText), CFSTR(kWideText));
    ReplaceAll(rewritten, CFSTR(kNarrowUnit), CFSTR(kWideUnit));
    CFStringRef result = CFStringCreateWithFormatAndArguments(nullptr, nullptr, rewritten, args);
    CFRelease(rewritten);
    return result;
}

CFIndex LengthOf(CFStringRef text) {
    return text ? CFStringGetLength(text) : 0;
}

// Copies the first `length` units out, terminates them and releases the text; no text is an empty one.
void CopyOut(CFStringRef text, CFIndex length, TavChar* buffer) {
    if (text) {
        CFStringGetCharacters(text, CFRangeMake(0, length), buffer);
        CFRelease(text);
    }
    buffer[length] = 0;
}

} // namespace

int32_t tav_swprintf(TavChar* buffer, const TavChar* format, ...) {
    va_list args;
    va_start(args, format);
    tav_vswprintf(buffer, format, args);
    va_end(args);
    return 0;
}

int32_t tav_vswprintf(TavChar* buffer, const TavChar* format, va_list args) {
    CFStringRef text = Format(format, args);
    const CFIndex length = LengthOf(text);
    CopyOut(text, length, buffer);
    return static_cast<int32_t>(length);
}

int32_t tav_snwprintf(TavChar* buffer, uint32_t n, const TavChar* format, ...) {
    va_list args;
    va_start(args, format);
    CFStringRef text = Format(format, args);
    va_end(args);
    const CFIndex length = LengthOf(text);
    const bool cut = static_cast<uint64_t>(length) > n;
    const uint32_t written = cut ? n : static_cast<uint32_t>(length);
    // kept: the terminator of a cut text lands behind n units.
    CopyOut(text, static_cast<CFIndex>(written), buffer);
    return cut ? -static_cast<int32_t>(written) : static_cast<int32_t>(written);
}
