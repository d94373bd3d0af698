// The URL service on plain paths. A URL here is nothing but its path without trailing "/", so the object
// behind it is a string of the string service, released like one; no escape sequence is ever made or read.
//
// It differs from the platform in three ways: non-ASCII names come back as they were given, because the
// host's names are plain bytes that nobody decomposes; lone surrogates, which stand for bytes that are not
// text, are allowed; and a ":" never makes a path look like a URL with a scheme.
//
// Order: rules for paths; the operations.
#include "platform/urls.h"

#include "platform/linux/string_object.h"

#include <algorithm>
#include <cstring>
#include <string_view>

using Path = std::basic_string_view<UniChar>;

static constexpr UniChar kDot[] = {u'.', 0};
static constexpr UniChar kDotDot[] = {u'.', u'.', 0};
static constexpr UniChar kRoot[] = {u'/', 0};

// ---- Rules for paths

// Looks at four units at a time, since paths hold no zero as a rule.
static size_t UnitsBeforeZero(Path path) {
    constexpr uint64_t kOnes = 0x0001000100010001;
    size_t i = 0;
    for (uint64_t word; i + 4 <= path.size(); i += 4) {
        memcpy(&word, path.data() + i, sizeof word);
        if ((word - kOnes) & ~word & (kOnes << 15)) break;
    }
    while (i < path.size() && path[i]) ++i;
    return i;
}

// Without the "/" at the end, but for the root, and without what follows a zero unit.
static Path Normalized(Path path) {
    path = path.substr(0, UnitsBeforeZero(path));
    size_t last = path.find_last_not_of(u'/');
    if (last != Path::npos) return path.substr(0, last + 1);
    return path.substr(0, 1);
}

static Path LastComponent(Path path) {
    if (path == kRoot) return path;
    return path.substr(path.rfind(u'/') + 1);
}

// The text behind the last "." of the last component, empty for none. A name of which only "." would be left
// has no extension, so that taking it off never leads to the folder itself or to its parent.
static Path Extension(Path path) {
    Path name = LastComponent(path);
    size_t dot = name.rfind(u'.');
    if (dot == Path::npos || name.find_first_not_of(u'.') >= dot) return {};
    return name.substr(dot + 1);
}

// A space, or a mark that turns the direction of writing: with it a text is not shown as an extension.
static bool IsBarred(UniChar unit) {
    return unit == u' ' || unit == 0x061C || unit == 0x200E || unit == 0x200F ||
           (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
}

// ---- The operations

static CFStringRef StringOf(CFURLRef url) {
    return reinterpret_cast<CFStringRef>(url);
}
static CFURLRef UrlOf(CFStringRef path) {
    return reinterpret_cast<CFURLRef>(path);
}

static Path TextOf(CFStringRef string) {
    return {string->units, string->length};
}
static Path PathOf(CFURLRef url) {
    return TextOf(StringOf(url));
}

// A string of both texts, one after the other; null when memory runs out.
static CFStringRef CreateString(Path text, Path more = {}) {
    OpaqueCFString* string = strings::Allocate(text.size() + more.size(), false);
    if (!string) return nullptr;
    text.copy(string->units, text.size());
    more.copy(string->units + text.size(), more.size());
    string->length = text.size() + more.size();
    return string;
}

static CFURLRef CreateUrl(Path text, Path more = {}) {
    return UrlOf(CreateString(text, more));
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef filePath, CFURLPathStyle, Boolean) {
    Path path = Normalized(TextOf(filePath));
    if (path.empty()) return nullptr;
    if (path.size() == TextOf(filePath).size() && !filePath->isMutable)
        return UrlOf(strings::Share(filePath));
    return CreateUrl(path);
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle) {
    return CreateString(PathOf(url));
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef, CFURLRef url) {
    static constexpr UniChar kUp[] = {u'/', u'.', u'.', 0};
    Path path = PathOf(url);
    Path name = LastComponent(path);
    Path folder = path.substr(0, path.size() - name.size()); // ends in "/", or is empty
    if (path == kRoot) return CreateUrl(kUp);
    if (name == kDotDot) return CreateUrl(path, kUp);
    if (name == kDot) return CreateUrl(folder, kDotDot);
    if (folder.empty()) return CreateUrl(kDot);
    if (folder == kRoot) return CreateUrl(kRoot);
    return CreateUrl(folder.substr(0, folder.size() - 1));
}

CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef, CFURLRef url, CFStringRef pathComponent,
                                               Boolean) {
    Path component = TextOf(pathComponent);
    component = component.substr(0, UnitsBeforeZero(component));
    if (component.empty()) return nullptr;
    Path folder = PathOf(url);
    CFStringRef path = CreateString(folder == kRoot ? Path() : folder, kRoot);
    if (!path) return nullptr;
    CFStringRef whole = CreateString(TextOf(path), component);
    CFRelease(path);
    CFURLRef appended =
        whole ? CFURLCreateWithFileSystemPath(nullptr, whole, kCFURLPOSIXPathStyle, false) : nullptr;
    if (whole) CFRelease(whole);
    return appended;
}

CFURLRef CFURLCreateCopyDeletingPathExtension(CFAllocatorRef, CFURLRef url) {
    Path path = PathOf(url);
    Path extension = Extension(path);
    if (extension.empty()) return UrlOf(strings::Share(StringOf(url)));
    return CreateUrl(path.substr(0, path.size() - extension.size() - 1));
}

CFStringRef CFURLCopyPathExtension(CFURLRef url) {
    Path extension = Extension(PathOf(url));
    if (extension.empty() || std::any_of(extension.begin(), extension.end(), IsBarred)) return nullptr;
    return CreateString(extension);
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    return CreateString(LastComponent(PathOf(url)));
}
