#include "platform/references.h"
#include "text/utf_sequences.h"
#include "vpath/expressions.h"
#include "vpath/key_paths.h"
#include "vpath/reference_cache.h"
#include "vpath/references.h"
#include "vpath/segments.h"
#include "vpath/translation_keys.h"

#include <algorithm>
#include <cstring>

namespace {

// A path taken apart at its last "/".
struct LastComponent {
    TavChar path[kPathUnits];
    const TavChar* name; // what is left of the path when there is no folder above
    uint32_t nameUnits;
    bool hasParent;
};

// False for null, and for a path that is empty or too long.
bool Split(const OpacTavFSRef* r, LastComponent* last) {
    TavChar* const path = last->path;
    if (!ReadPath(r, path) || !path[0]) return false;
    // kept: the "/" at the end still counts in the search for the last one, so such a path has no folder
    // above.
    const TavChar* const slash = tav_wcsrchr(path, u'/');
    uint32_t length = tav_wcslen(path);
    if (path[length - 1] == u'/') path[--length] = 0;
    last->hasParent = slash && slash + 1 < path + length;
    last->name = last->hasParent ? slash + 1 : path;
    last->nameUnits = static_cast<uint32_t>(path + length - last->name);
    return true;
}

void Clear(TavChar* buf, uint32_t units) {
    if (buf) std::fill_n(buf, units, TavChar{0});
}

// Copies what fits before the last unit of a cleared buffer.
void CopyName(const LastComponent& last, TavChar* buf, uint32_t units) {
    if (buf && units > 0) std::copy_n(last.name, std::min(units - 1, last.nameUnits), buf);
}

// Whether there is an object at r's path; `out`, unless null, receives the platform's reference to it.
bool FindObject(const OpacTavFSRef* r, uint32_t options, FSRef* out) {
    const uint32_t units = r ? SegLen(r->Path()) : kPathUnits;
    if (units >= kPathUnits) return false;
    uint8_t path[3 * kPathUnits];
    const ptrdiff_t bytes = utf::Encode(r->Path(), units, path, utf::BestWay());
    if (bytes < 0) return false;
    path[bytes] = 0;
    return FSPathMakeRefWithOptions(path, options, out, nullptr) == noErr;
}

} // namespace

OpacTavFSRef* Tav0FSRCreateAbs(const FSRef* folder) {
    TavChar path[kPathUnits];
    const uint32_t units = _GetAbsPath(folder, path, kPathUnits);
    return units > 0 && units <= kPathUnits ? FSRCreatePath(path) : nullptr;
}

OpacTavFSRef* Tav0FSRCreateTK(const TavKey* key) {
    return Tav0FSRCreateAbs(Tav0TranPathGet(key));
}

int32_t Tav0FSRToAbs(const OpacTavFSRef* r, FSRef* out, uint32_t) {
    // A link whose target is missing can be deleted, moved and renamed.
    return out && FindObject(r, kFSPathMakeRefDoNotFollowLeafSymlink, out);
}

int32_t Tav0FSRIsExist(const OpacTavFSRef* r) {
    return FindObject(r, kFSPathMakeRefDefaultOptions, nullptr);
}

OpacTavFSRef* Tav0FSRAppendPathComponent(const OpacTavFSRef* r, const TavChar* component) {
    OpacTavFSExp* e = r ? Tav0FSExpCreateAbs(const_cast<OpacTavFSRef*>(r)) : nullptr;
    OpacTavFSRef* child = nullptr;
    if (Tav0FSExpAppendSeg(e, component)) child = Tav0FSExpCalculateFSRCreate(e, nullptr);
    Tav0FSExpRelease(e);
    return child;
}

OpacTavFSRef* Tav0FSRRemoveLastPathComponent(const OpacTavFSRef* r, TavChar* lastBuf, uint32_t lastUnits) {
    Clear(lastBuf, lastUnits);
    LastComponent last;
    if (!Split(r, &last)) return nullptr;
    CopyName(last, lastBuf, lastUnits);
    if (!last.hasParent) return nullptr;
    last.path[last.name - last.path] = 0;
    return FSRCreatePath(last.path);
}

int32_t Tav0FSRGetLastPathComponent(const OpacTavFSRef* r, TavChar* lastBuf, uint32_t lastUnits) {
    Clear(lastBuf, lastUnits);
    LastComponent last;
    if (!Split(r, &last)) return 0;
    CopyName(last, lastBuf, lastUnits);
    return 1;
}
