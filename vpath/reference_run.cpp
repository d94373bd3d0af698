#include "vpath/reference_run.h"

#include "text/unit_scan.h"
#include "vpath/segments.h"

#include <algorithm>

namespace {

// The first eight of the `length` units at `text` in a number that orders as they do. A unit that does not fit
// in a byte ends it with the highest byte, so that different texts may have the same key.
struct Key {
    static constexpr unsigned kUnits = 8;

    Key(const TavChar* text, size_t length) {
        if (length >= kUnits) {
            uint32_t above = 0; // more than a byte where a unit is 0xFF or more
#pragma GCC unroll 8
            for (unsigned i = 0; i < kUnits; ++i) {
                above |= text[i] + 1u;
                bits = bits << 8 | (text[i] & 0xFFu);
            }
            covered = kUnits;
            if (above <= 0xFF) return;
        }
        TakeOneByOne(text, std::min<size_t>(length, kUnits));
    }

    uint64_t bits = 0;
    unsigned covered = 0; // units that are the same in every text with this key

private:
    void TakeOneByOne(const TavChar* text, size_t length) {
        bits = 0;
        for (covered = 0; covered < length; ++covered) {
            const unsigned shift = 8 * (kUnits - 1 - covered);
            if (text[covered] >= 0xFF) {
                bits |= uint64_t{0xFF} << shift;
                return;
            }
            bits |= uint64_t{text[covered]} << shift;
        }
    }
};

// Units that both texts begin with, at most `limit`.
uint32_t CommonUnits(const TavChar* a, const TavChar* b, uint32_t limit) {
    return static_cast<uint32_t>(scan::CommonLength<Fold::None>(a, b, limit));
}

// The first of `count` sorted keys that is not less than `key`. No branch depends on the keys: half of them
// would be foreseen wrongly.
size_t LowerBoundOfKey(const uint64_t* keys, size_t count, uint64_t key) {
    const uint64_t* first = keys;
    while (count > 1) {
        const size_t half = count / 2;
        first += half & -static_cast<size_t>(first[half - 1] < key);
        count -= half;
    }
    return static_cast<size_t>(first - keys) + (count == 1 && *first < key);
}

// The end of the equal keys that begin at `first`; mostly there are few of them.
size_t EndOfEqualKeys(const uint64_t* keys, size_t first, size_t count, uint64_t key) {
    if (first == count || keys[first] != key) return first;
    size_t step = 1;
    while (step < count - first && keys[first + step] == key) step *= 2;
    const size_t known = first + step / 2 + 1;
    const size_t end = std::min(first + step, count);
    return key == UINT64_MAX ? count : known + LowerBoundOfKey(keys + known, end - known, key + 1);
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
    const size_t place = length < common_ ? count : LowerBoundByKeys(count, path, length);

    const TavChar* const found = refs_[place < count ? place : sample_]->Path();
    const size_t same = scan::CommonLength<Fold::None>(found, path, SIZE_MAX);
    if (same < common_) return {path[same] > found[same] ? count : FirstElement(0, count), false};
    return {place, place < count && same == length && !found[same]};
}

// The lower bound of a path of `length` units that begins as all in the run do; some element's place or the
// end for any other that is as long.
size_t ReferenceRun::LowerBoundByKeys(size_t count, const TavChar* path, size_t length) const {
    const Key key(path + common_, length - common_);
    size_t shared = common_ + key.covered;
    size_t first = LowerBoundOfKey(keys_.data(), count, key.bits);
    size_t last = EndOfEqualKeys(keys_.data(), first, count, key.bits);
    if (last - first > 1 && key.covered == Key::kUnits) {
        const Key next(path + shared, length - shared);
        first += LowerBoundOfKey(&nextKeys_[first], last - first, next.bits);
        last = EndOfEqualKeys(nextKeys_.data(), first, last, next.bits);
        shared += next.covered;
    }
    return FirstElement(LowerBoundOfEqualKeys(first, last, ElementBeforePath{shared}, path), count);
}

// The first place from `place` on that is not empty.
size_t ReferenceRun::FirstElement(size_t place, size_t count) const {
    while (place < count && !refs_[place]) ++place;
    return place;
}

size_t ReferenceRun::LowerBoundOfEqualKeys(size_t first, size_t last, ElementBeforePath before,
                                           const TavChar* path) const {
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
    keys_.insert(keys_.begin() + place, 0);
    nextKeys_.insert(nextKeys_.begin() + place, 0);
    refs_.insert(refs_.begin() + place, ref);
    SetKeys(place);
}

void ReferenceRun::Erase(size_t place) {
    keys_.erase(keys_.begin() + place);
    nextKeys_.erase(nextKeys_.begin() + place);
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
        open(nextKeys_);
        open(refs_);
        refs_[place + left - 1] = ref;
        SetKeys(place + left - 1);
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
        nextKeys_[to] = nextKeys_[from];
        refs_[to++] = refs_[from];
    }
    Resize(to);
    empty_ = sample_ = 0;
    if (to < refs_.capacity() / 4) {
        keys_.shrink_to_fit();
        nextKeys_.shrink_to_fit();
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
    for (size_t i = 0; i < refs_.size(); ++i) SetKeys(i);
}

void ReferenceRun::SetKeys(size_t place) {
    const TavChar* const text = refs_[place]->Path() + common_;
    const size_t length = SegLen(text);
    const Key key(text, length);
    keys_[place] = key.bits;
    nextKeys_[place] = key.covered == Key::kUnits ? Key(text + Key::kUnits, length - Key::kUnits).bits : 0;
}

void ReferenceRun::Resize(size_t count) {
    keys_.resize(count);
    nextKeys_.resize(count);
    refs_.resize(count);
}

// Grows by an eighth when it must, since a long run is moved as a whole then.
void ReferenceRun::Reserve(size_t count) {
    const size_t roomy = count + count / 8 + 8;
    if (count > keys_.capacity()) keys_.reserve(roomy);
    if (count > nextKeys_.capacity()) nextKeys_.reserve(roomy);
    if (count > refs_.capacity()) refs_.reserve(roomy);
}
