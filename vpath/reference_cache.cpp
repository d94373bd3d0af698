#include "vpath/reference_cache.h"

#include "vpath/globals.h"
#include "vpath/segments.h"

#include <new>

using References = Key1ToKey2<const TavChar*, OpacTavFSRef*>;

bool References::LessThan::operator()(const TavChar* path, const OpacTavFSRef* element) const {
    return SegCmp(path, GetKey1(element)) < 0;
}

bool References::IsExistKey1(const TavChar* path, iterator& place) const {
    const ReferenceRun::Bound settled = settled_.LowerBound(path);
    place.settled_ = settled.place;
    place.recent_ = recent_.size();
    place.element_ = settled.place < settled_.size() ? settled_[settled.place] : nullptr;
    if (settled.isEqual) return true;

    const ReferenceRun::Bound recent = recent_.LowerBound(path);
    place.recent_ = recent.place;
    if (recent.place == recent_.size()) return false;
    OpacTavFSRef* const element = recent_[recent.place];
    if (recent.isEqual || !place.element_ || LessThan()(GetKey1(element), place.element_))
        place.element_ = element;
    return recent.isEqual;
}

void References::InsertKey2(OpacTavFSRef* object, const iterator& place) {
    recent_.Insert(place.recent_, object);
    if (IsUntidy()) TidyUp();
}

void References::Release(OpacTavFSRef* object) {
    if (DeReference(object) > 0) return;
    iterator place;
    if (IsExistKey1(GetKey1(object), place)) Erase(place);
    Free(object);
}

void References::Erase(const iterator& place) {
    if (place.recent_ < recent_.size() && recent_[place.recent_] == place.element_) {
        recent_.Erase(place.recent_);
    } else {
        settled_.Empty(place.settled_);
        if (IsUntidy()) TidyUp();
    }
}

// Both runs at once, since changes in either count: a recent one that stayed would make every next change tidy up.
void References::TidyUp() {
    try {
        settled_.Absorb(recent_);
    } catch (const std::bad_alloc&) {
        // All elements are in all the same; the next change tries again.
    }
}

// Whether tidying up, whose cost grows with all elements, is due: after about twice their square root of
// changes, which keeps both the tidying and the moves in between short.
bool References::IsUntidy() const {
    const uint64_t changes = uint64_t{recent_.size()} + settled_.empty();
    return changes * changes > 4 * uint64_t{settled_.size()} + 1024;
}

OpacTavFSRef* FSRCreatePath(const TavChar* path) {
    if (!s_FSRefs.Lock()) return nullptr;
    References::iterator place;
    OpacTavFSRef* r = nullptr;
    if (s_FSRefs.IsExistKey1(path, place)) {
        r = *place;
        AddReference(r);
    } else if ((r = NewReference(path))) {
        try {
            s_FSRefs.InsertKey2(r, place);
        } catch (const std::bad_alloc&) {
            Free(r);
            r = nullptr;
        }
    }
    s_FSRefs.Unlock();
    return r;
}

OpacTavFSRef* Tav0FSRCreateWithPath(const TavChar* path) {
    return path ? FSRCreatePath(path) : nullptr;
}

void Tav0FSRRelease(OpacTavFSRef* r) {
    if (!r || !s_FSRefs.Lock()) return;
    s_FSRefs.Release(r);
    s_FSRefs.Unlock();
}
