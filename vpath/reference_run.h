// A contiguous sorted array of references with keys beside each, so that a bisection rarely looks at a path.
#pragma once

#include "vpath/path_key.h"
#include "vpath/references.h"

#include <cstddef>
#include <vector>

// Whether an element comes before a path, when both begin with the same `skip` units.
struct ElementBeforePath {
    size_t skip = 0;
    bool operator()(const OpacTavFSRef* element, const TavChar* path) const;
};

// Ordered by path. Every path in the run begins with the same `common_` units; the key of a reference tells
// those after them. Erased places stay, empty, until Compact.
class ReferenceRun {
public:
    // The first place whose path is not less than `path`: never an empty one, size() when there is none.
    // `isEqual` says that the element there has this very path.
    struct Bound {
        size_t place;
        bool isEqual;
    };
    Bound LowerBound(const TavChar* path) const { return LowerBoundAmong(refs_.size(), path); }

    // Inserts at its lower bound in a run without empty places. On std::bad_alloc the run is as it was.
    void Insert(size_t place, OpacTavFSRef* ref);

    // Removes an element of a run without empty places, moving those behind it.
    void Erase(size_t place);

    // Removes an element, leaving its place empty: cheap, however long the run.
    void Empty(size_t place);

    // Takes every element of `other`, of which none is in this run, and empties it. On std::bad_alloc both
    // are as they were, but for empty places.
    void Absorb(ReferenceRun& other);

    // Closes up the empty places and gives memory back when little of it is used.
    void Compact();

    OpacTavFSRef* operator[](size_t place) const { return refs_[place]; }
    size_t size() const { return refs_.size(); }
    size_t live() const { return refs_.size() - empty_; }
    size_t empty() const { return empty_; }

private:
    Bound LowerBoundAmong(size_t count, const TavChar* path) const;
    size_t LowerBoundByKey(size_t count, const TavChar* path, size_t length) const;
    size_t LowerBoundOfEqualKeys(size_t first, size_t last, const TavChar* path) const;
    size_t FirstElement(size_t place, size_t count) const;
    void SetCommon(uint32_t common);
    PathKey KeyOf(const OpacTavFSRef* ref) const;
    void Resize(size_t count);
    void Reserve(size_t count);

    std::vector<PathKey> keys_;
    std::vector<OpacTavFSRef*> refs_;
    size_t empty_ = 0;
    size_t sample_ = 0; // some element that is not empty
    uint32_t common_ = 0;
};
