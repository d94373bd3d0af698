// The helpers that edit a path in its buffer or point into it.
#include "paths/released.h"
#include "platform/urls.h"

#include <algorithm>

static Released<CFURLRef> CreateUrl(const TavChar* path, uint32_t length) {
    Released<CFStringRef> text(CFStringCreateWithCharacters(nullptr, path, length));
    if (!text) return nullptr;
    return Released<CFURLRef>(
        CFURLCreateWithFileSystemPath(nullptr, text.get(), kCFURLPOSIXPathStyle, false));
}

// The URL's path; null for a null URL.
static Released<CFStringRef> CopyPath(const Released<CFURLRef>& url) {
    return Released<CFStringRef>(url ? CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle) : nullptr);
}

// Writes the text and a terminator.
static uint32_t WriteText(CFStringRef text, TavChar* buffer) {
    CFIndex length = CFStringGetLength(text);
    CFStringGetCharacters(text, {0, length}, buffer);
    buffer[length] = 0;
    return static_cast<uint32_t>(length);
}

int32_t TavPathAppend(TavChar* path, const TavChar* more) {
    TavChar* end = path + tav_wcslen(path);
    if (end == path || end[-1] != u'/') *end++ = u'/';
    while (*more == u'/') ++more;
    tav_wcscpy(end, more);
    return 1;
}

int32_t TavPathRemoveFileSpec(TavChar* path) {
    uint32_t length = tav_wcslen(path);
    if (length == 0) return 0;
    // kept: of a path that ends in "/" only that goes; callers call twice for the parent.
    if (path[length - 1] == u'/') {
        path[length - 1] = 0;
        return 1;
    }
    Released<CFURLRef> url = CreateUrl(path, length);
    if (!url) return 0;
    Released<CFURLRef> parent(CFURLCreateCopyDeletingLastPathComponent(nullptr, url.get()));
    Released<CFStringRef> text = CopyPath(parent);
    if (!text) return 0;
    std::fill_n(path, length, TavChar(0));
    uint32_t newLength = WriteText(text.get(), path);
    if (newLength == 1 && path[0] == u'.') path[0] = 0;
    return 1;
}

void TavPathRemoveExtension(TavChar* path) {
    Released<CFURLRef> url = CreateUrl(path, tav_wcslen(path));
    if (!url) return;
    Released<CFURLRef> bare(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
    Released<CFStringRef> text = CopyPath(bare);
    if (text) WriteText(text.get(), path);
}

TavChar* TavPathFindExtension(const TavChar* path) {
    uint32_t length = tav_wcslen(path);
    TavChar* end = const_cast<TavChar*>(path) + length;
    Released<CFURLRef> url = CreateUrl(path, length);
    if (!url) return end;
    Released<CFStringRef> extension(CFURLCopyPathExtension(url.get()));
    // kept: counted back from the path's end, so that trailing "/" shift the result.
    return extension ? end - CFStringGetLength(extension.get()) - 1 : end;
}

TavChar* TavPathFindFileName(const TavChar* path) {
    uint32_t length = tav_wcslen(path);
    TavChar* start = const_cast<TavChar*>(path);
    Released<CFURLRef> url = CreateUrl(path, length);
    if (!url) return start;
    Released<CFStringRef> component(CFURLCopyLastPathComponent(url.get()));
    // kept: counted back from the path's end, so that trailing "/" shift the result.
    return component ? start + length - CFStringGetLength(component.get()) : start;
}

TavChar* TavPathAddSlash(TavChar* path) {
    TavChar* end = path + tav_wcslen(path);
    if (end == path) return path;
    if (end[-1] != u'/') {
        *end++ = u'/';
        *end = 0;
    }
    return end;
}

TavChar* TavPathRemoveSlash(TavChar* path) {
    TavChar* end = path + tav_wcslen(path);
    if (end - path > 1 && end[-1] == u'/') *--end = 0;
    return end;
}
