#include "vpath/reference_run.h"

#include "text/unit_scan.h"
#include "vpath/segments.h"

#include <algorithm>

namespace {

// Units that both texts begin with, at most `limit`.
uint32_t CommonUnits(const TavChar* a, const TavChar* b, uint32_t limit) {
    return static_cast<uint32_t>(scan::CommonLength<Fold::None>(a, b, limit));
}

// The first of `count` sorted keys that is not less than `key`, by quarters: the three keys of a step are
// fetched together, and no branch depends on them.
size_t LowerBoundOfKey(const PathKey* keys, size_t count, const PathKey& key) {
    const PathKey* first = keys;
    while (count > 8) {
        const size_t quarter = count / 4;
        const size_t passed = size_t{first[quarter - 1] < key} + size_t{first[2 * quarter - 1] < key} +
                              size_t{first[3 * quarter - 1] < key};
        first += passed * quarter;
        count -= 3 * quarter;
    }
    size_t less = 0;
    for (size_t i = 0; i < count; ++i) less += first[i] < key;
    return static_cast<size_t>(first - keys) + less;
}

// The end of the equal keys that begin at `first`; mostly there are few of them.
size_t EndOfEqualKeys(const PathKey* keys, size_t first, size_t count) {
    const PathKey& key = keys[first];
    size_t step = 1;
    while (step < count - first && keys[first + step] == key) step *= 2;
    const auto known = keys + first + step / 2;
    const auto end = keys + std::min(first + step, count);
    return static_cast<size_t>(std::upper_bound(known, end, key) - keys);
}

} // namespace

bool ElementBeforePath::operator()(const OpacTavFSRef* element, const TavChar* path) const {
    return SegCmp(element->Path() + skip, path + skip) < 0;
}

// A path that does not begin as all in the run do is sought all the same; the one comparison with what was
// found shows it.
ReferenceRun::Bound ReferenceRun::LowerBoundAmong(size_t count, const TavChar* path) const {
    if (count == 0) return {0, false};
    const size_t length = SegLen(path);
    const size_t place = length < common_ ? count : LowerBoundByKey(count, path, length);

    const TavChar* const found = refs_[place < count ? place : sample_]->Path();
    const size_t same = scan::CommonLength<Fold::None>(found, path, SIZE_MAX);
    const bool isLess = found[same] < path[same];
    if (same < common_) return {isLess ? count : FirstElement(0, count), false};
    if (place == count) return {count, false};
    return {isLess ? FirstElement(place + 1, count) : place, same == length && !found[same]};
}

// The lower bound of a path of `length` units that begins as all in the run do, or the only element in front
// of it that has the same key. For any other path some element's place or the end.
size_t ReferenceRun::LowerBoundByKey(size_t count, const TavChar* path, size_t length) const {
    const PathKey key(path, length, common_);
    const size_t first = LowerBoundOfKey(keys_.data(), count, key);
    if (first + 1 < count && keys_[first + 1] == key)
        return FirstElement(LowerBoundOfEqualKeys(first, EndOfEqualKeys(keys_.data(), first, count), path),
                            count);
    return FirstElement(first, count);
}

// The first place from `place` on that is not empty.
size_t ReferenceRun::FirstElement(size_t place, size_t count) const {
    while (place < count && !refs_[place]) ++place;
    return place;
}

size_t ReferenceRun::LowerBoundOfEqualKeys(size_t first, size_t last, const TavChar* path) const {
    const ElementBeforePath before{common_};
    while (first < last) {
        const size_t middle = first + (last - first) / 2;
        const size_t probe = FirstElement(middle, last);
        if (probe < last && before(refs_[probe], path)) {
            first = probe + 1;
        } else {
            last = middle;
        }
    }
    return first;
}

void ReferenceRun::Insert(size_t place, OpacTavFSRef* ref) {
    const TavChar* const path = ref->Path();
    Reserve(size() + 1);
    const uint32_t common = refs_.empty() ? SegLen(path) : CommonUnits(refs_[0]->Path(), path, common_);
    if (common != common_) SetCommon(common);
    keys_.insert(keys_.begin() + place, KeyOf(ref));
    refs_.insert(refs_.begin() + place, ref);
}

void ReferenceRun::Erase(size_t place) {
    keys_.erase(keys_.begin() + place);
    refs_.erase(refs_.begin() + place);
}

void ReferenceRun::Empty(size_t place) {
    refs_[place] = nullptr;
    ++empty_;
    if (live() == 0) return Compact();
    while (!refs_[sample_]) sample_ = (sample_ + 1) % size();
}

void ReferenceRun::Absorb(ReferenceRun& other) {
    Compact();
    if (refs_.empty()) {
        std::swap(*this, other);
        return;
    }
    if (other.refs_.empty()) return;
    Reserve(size() + other.size());

    const TavChar* const path = refs_[0]->Path();
    uint32_t common = CommonUnits(path, other.refs_.front()->Path(), common_);
    common = CommonUnits(path, other.refs_.back()->Path(), common);
    if (common != common_) SetCommon(common);

    // From the back, so that what has not been moved yet stays a sorted array to search.
    size_t end = size();
    Resize(end + other.size());
    for (size_t left = other.size(); left > 0; --left) {
        OpacTavFSRef* const ref = other.refs_[left - 1];
        const size_t place = LowerBoundAmong(end, ref->Path()).place;
        const auto open = [&](auto& array) {
            std::move_backward(array.begin() + place, array.begin() + end, array.begin() + end + left);
        };
        open(keys_);
        open(refs_);
        refs_[place + left - 1] = ref;
        keys_[place + left - 1] = KeyOf(ref);
        end = place;
    }
    other.Resize(0);
}

void ReferenceRun::Compact() {
    if (empty_ == 0) return;
    size_t to = 0;
    for (size_t from = 0; from < refs_.size(); ++from) {
        if (!refs_[from]) continue;
        keys_[to] = keys_[from];
        refs_[to++] = refs_[from];
    }
    Resize(to);
    empty_ = sample_ = 0;
    if (to < refs_.capacity() / 4) {
        keys_.shrink_to_fit();
        refs_.shrink_to_fit();
    }
    if (to == 0) return;
    // The elements that are left may have more in common.
    const TavChar* const path = refs_.front()->Path();
    const uint32_t common = CommonUnits(path, refs_.back()->Path(), SegLen(path));
    if (common != common_) SetCommon(common);
}

void ReferenceRun::SetCommon(uint32_t common) {
    common_ = common;
    for (size_t i = 0; i < refs_.size(); ++i) keys_[i] = KeyOf(refs_[i]);
}

PathKey ReferenceRun::KeyOf(const OpacTavFSRef* ref) const {
    return {ref->Path(), SegLen(ref->Path()), common_};
}

void ReferenceRun::Resize(size_t count) {
    keys_.resize(count);
    refs_.resize(count);
}

// Grows by an eighth when it must, since a long run is moved as a whole then.
void ReferenceRun::Reserve(size_t count) {
    const size_t roomy = count + count / 8 + 8;
    if (count > keys_.capacity()) keys_.reserve(roomy);
    if (count > refs_.capacity()) refs_.reserve(roomy);
}
