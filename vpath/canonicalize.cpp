#include "vpath/canonicalize.h"

#include <cstring>

namespace {

constexpr uint32_t kMaxSeparators = 512;

// The separators met so far, and for each the end of the stretch to delete that begins at it (0 for none).
class Separators {
public:
    // Records the separator (or the terminator) at `position`, behind a segment of `dots` dots. False when
    // there is no room for it, or the dots climb above the first separator.
    bool Record(uint16_t position, uint32_t dots) {
        if (count_ == kMaxSeparators) return false;
        if (count_ < dots) return false;
        position_[count_] = position;
        deletionEnd_[count_] = 0;
        // kept: k dots delete their own segment and the k - 1 before it, so "..." climbs two levels.
        count_ -= dots;
        if (dots > 0) deletionEnd_[count_] = position;
        ++count_;
        return true;
    }

    // Closes up the stretches to delete in a path of `length` units.
    void Compact(TavChar* path, uint32_t length) const {
        uint32_t to = 0;
        uint32_t from = 0;
        for (uint32_t i = 0; i < count_; ++i) {
            if (deletionEnd_[i] <= position_[i]) continue;
            to += Move(path, to, from, position_[i]);
            from = deletionEnd_[i];
        }
        Move(path, to, from, length + 1);
    }

private:
    static uint32_t Move(TavChar* path, uint32_t to, uint32_t from, uint32_t end) {
        if (to != from) std::memmove(path + to, path + from, (end - from) * sizeof(TavChar));
        return end - from;
    }

    uint32_t count_ = 0;
    uint16_t position_[kMaxSeparators];
    uint16_t deletionEnd_[kMaxSeparators];
};

} // namespace

// Whether a unit means something after an ordinary one; dots are ordinary there.
static bool EndsOrdinaryText(TavChar unit) {
    return unit == u'/' || unit == 0 || unit == u':';
}

int32_t MyPathCanonicalize(TavChar* path) {
    Separators separators;
    // kept: off at first, so that dots without a "/" before them are ordinary text.
    bool atSegmentStart = false;
    uint32_t dots = 0;
    for (uint32_t i = 0;; ++i) {
        switch (path[i]) {
        case u'/':
        case 0:
            if (!separators.Record(static_cast<uint16_t>(i), dots)) return 0;
            if (!path[i]) {
                separators.Compact(path, i);
                return 1;
            }
            dots = 0;
            atSegmentStart = true;
            break;
        case u'.':
            if (atSegmentStart) ++dots;
            break;
        case u':':
            // Only where it ends a drive letter.
            if (i != 1) return 0;
            atSegmentStart = true;
            dots = 0;
            break;
        default:
            if (dots > 0) return 0;
            atSegmentStart = false;
            while (!EndsOrdinaryText(path[i + 1])) ++i;
        }
    }
}
