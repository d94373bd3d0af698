#include "paths/path_reference.h"

#include "paths/buffers.h"
#include "paths/released.h"

OSStatus MakePathRef(const TavChar* path, FSRef* ref, Boolean* isDirectory) {
    Released<CFStringRef> text(CFStringCreateWithCharacters(nullptr, path, tav_wcslen(path)));
    if (!text) return memFullErr;
    char bytes[kPathBufferSize];
    if (!CFStringGetCString(text.get(), bytes, sizeof bytes, kCFStringEncodingUTF8)) return bdNamErr;
    return FSPathMakeRef(reinterpret_cast<const uint8_t*>(bytes), ref, isDirectory);
}
