#include "vpath/key_paths.h"

#include "platform/references.h"
#include "vpath/expressions.h"
#include "vpath/segments.h"
#include "vpath/translation_keys.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// The path of the folder that `key`, or `base` where given, stands for.
bool ReadFolder(const TavKey* key, const OpacTavFSRef* base, TavChar* folder) {
    if (base) return ReadPath(base, folder);
    const uint32_t units = _GetAbsPath(Tav0TranPathGet(key), folder, kPathUnits);
    return units > 0 && units <= kPathUnits;
}

// Reads r's path, and tells whether it is the folder's or below it; `folderUnits` is the folder's length
// then.
bool ReadPathUnderFolder(const OpacTavFSRef* r, const TavKey* key, const OpacTavFSRef* base, TavChar* path,
                         uint32_t* folderUnits) {
    TavChar folder[kPathUnits];
    if (!ReadPath(r, path) || !ReadFolder(key, base, folder)) return false;
    const uint32_t length = *folderUnits = tav_wcslen(folder);
    if (length > tav_wcslen(path)) return false;
    const TavChar next = std::exchange(path[length], 0);
    const bool same = tav_wcscmpi(folder, path) == 0;
    path[length] = next;
    // kept: a folder path has no "/" at the end but for the root's, so nothing is below the root.
    return same && (next == 0 || next == u'/');
}

// One more "$" in front; false when memory is short.
bool PrefixDollar(OpacTavFSExp* e) {
    auto* block = static_cast<TavChar*>(std::malloc((size_t{e->capacity} + 1) * sizeof(TavChar)));
    if (!block) return false;
    block[0] = u'$';
    std::memcpy(block + 1, e->storage, e->capacity * sizeof(TavChar));
    std::free(std::exchange(e->storage, block));
    ++e->length;
    ++e->capacity;
    return true;
}

} // namespace

uint32_t _GetAbsPath(const FSRef* folder, TavChar* buf, uint32_t bufUnits) {
    if (!folder) return 0;
    uint8_t utf8[kPathBytes];
    if (FSRefMakePath(folder, utf8, sizeof utf8) != noErr) return 0;
    TavChar* path = Tav0UTF16FromUTF8(reinterpret_cast<const char*>(utf8));
    if (!path) return 0;
    const uint32_t units = SegLen(path) + 1;
    if (buf && bufUnits >= units) std::memcpy(buf, path, units * sizeof(TavChar));
    Tav0UTFRelease(path);
    return units;
}

bool ReadPath(const OpacTavFSRef* r, TavChar* buf) {
    const uint32_t units = Tav0FSRToUTF16(r, buf, kPathUnits);
    return units > 0 && units <= kPathUnits;
}

int32_t Tav0FSRIsBaseOnKey(const OpacTavFSRef* r, const TavKey* key, const OpacTavFSRef* base) {
    TavChar path[kPathUnits];
    uint32_t folderUnits;
    return ReadPathUnderFolder(r, key, base, path, &folderUnits);
}

OpacTavFSExp* Tav0FSExpCreateAbsOnKey(const OpacTavFSRef* ref, const char* key, const OpacTavFSRef* base) {
    if (!key) return nullptr;
    TavKey folderKey;
    std::memcpy(&folderKey, key, sizeof folderKey);
    TavChar path[kPathUnits];
    uint32_t folderUnits;
    if (!ReadPathUnderFolder(ref, &folderKey, base, path, &folderUnits)) return nullptr;

    OpacTavFSExp* e = Tav0FSExpCreateTK(key);
    if (!e) return nullptr;
    const bool below = path[folderUnits] != 0 && path[folderUnits + 1] != 0;
    if ((base && !PrefixDollar(e)) || (below && !Tav0FSExpAppendSeg(e, path + folderUnits + 1))) {
        Tav0FSExpRelease(e);
        return nullptr;
    }
    return e;
}
