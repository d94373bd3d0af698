// The cache of live references: one for each path, sorted by path, behind one lock.
#pragma once

#include "platform/multiprocessing.h"
#include "platform/process.h"
#include "vpath/reference_run.h"
#include "vpath/references.h"

// Finds objects (key 2) by what they contain (key 1).
template <class Key1, class Key2>
class Key1ToKey2;

inline const TavChar* GetKey1(const OpacTavFSRef* r) {
    return r->Path();
}

// A sorted array of references, at most one for each path; it does not own them. It is kept as a long run and
// a short one of recent insertions that is merged into it as it grows, so that no insertion moves much.
template <>
class Key1ToKey2<const TavChar*, OpacTavFSRef*> {
public:
    // The order: whether an element comes before a path, and the other way round.
    using Pr = ElementBeforePath;
    struct LessThan {
        bool operator()(const TavChar* path, const OpacTavFSRef* element) const;
    };

    // A place in the order: the lower bounds in both runs. Dereferencing gives the element there, null at the
    // end.
    class iterator {
    public:
        OpacTavFSRef* operator*() const { return element_; }

    private:
        friend class Key1ToKey2;
        size_t settled_ = 0;
        size_t recent_ = 0;
        OpacTavFSRef* element_ = nullptr;
    };

    // True when an element has exactly this path; `place` becomes the lower bound either way.
    bool IsExistKey1(const TavChar* path, iterator& place) const;

    // Inserts an object whose path has its lower bound at `place`. On std::bad_alloc nothing changes.
    void InsertKey2(OpacTavFSRef* object, const iterator& place);

    // One holder less; without any left the object is erased and freed.
    void Release(OpacTavFSRef* object);

    size_t size() const { return settled_.live() + recent_.live(); }

private:
    void Erase(const iterator& place);
    bool IsUntidy() const;
    void TidyUp();

    ReferenceRun settled_;
    ReferenceRun recent_;
};

// The same with a lock, which the thread that holds it may take again.
template <class Key1, class Key2>
class Key1ToKey2Lock : public Key1ToKey2<Key1, Key2> {
public:
    Key1ToKey2Lock() {
        if (MPCreateCriticalRegion(&region_) != noErr) region_ = 0;
    }
    ~Key1ToKey2Lock() { MPDeleteCriticalRegion(region_); }
    Key1ToKey2Lock(const Key1ToKey2Lock&) = delete;
    Key1ToKey2Lock& operator=(const Key1ToKey2Lock&) = delete;

    // False when the region could not be made or had. Until Unlock the thread cannot be terminated: the lock
    // would stay held, and the array half changed.
    bool Lock() {
        PlatformHoldTermination();
        if (MPEnterCriticalRegion(region_, kDurationForever) == noErr) return true;
        PlatformReleaseTermination();
        return false;
    }
    void Unlock() {
        if (MPExitCriticalRegion(region_) == noErr) PlatformReleaseTermination();
    }

private:
    MPCriticalRegionID region_ = 0;
};

// The reference to `path` with one more holder, cached or new; null when memory is short.
OpacTavFSRef* FSRCreatePath(const TavChar* path);
