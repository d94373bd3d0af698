// tav_wcsstr: candidates are compared on the spot. A haystack that keeps producing candidates that fail late is
// handed over to a search that never looks back, so that the cost stays linear.
#include "text/unit_scan.h"

#include <algorithm>
#include <cstdint>

namespace {

// Longer needles are searched by their first units only, and compared where those occur.
constexpr size_t kTableUnits = 512;

// Knuth, Morris and Pratt: for each prefix of the needle, how long the longest border of it is.
class BorderSearch {
public:
    BorderSearch(const TavChar* needle, size_t length)
        : needle_(needle), length_(std::min(length, kTableUnits)) {
        for (size_t i = 1; i < length_; ++i)
            border_[i] = static_cast<uint16_t>(Extend(border_[i - 1], needle[i]));
    }

    // The first place of the prefix at or behind `hay` that `accept` takes; null when the haystack ends
    // first.
    template <typename Accept>
    const TavChar* Find(const TavChar* hay, Accept accept) const {
        for (size_t matched = 0; *hay; ++hay) {
            if (matched == length_) matched = border_[matched - 1];
            matched = Extend(matched, *hay);
            if (matched != length_) continue;
            const TavChar* candidate = hay + 1 - length_;
            if (accept(candidate)) return candidate;
        }
        return nullptr;
    }

private:
    // Length of the longest prefix that ends with `unit`, when one of length `matched` ended before it.
    size_t Extend(size_t matched, TavChar unit) const {
        while (matched && needle_[matched] != unit) matched = border_[matched - 1];
        return matched + (needle_[matched] == unit);
    }

    const TavChar* needle_;
    size_t length_;
    uint16_t border_[kTableUnits] = {};
};

} // namespace

TavChar* tav_wcsstr(const TavChar* hay, const TavChar* needle) {
    if (!*needle) return const_cast<TavChar*>(hay);
    if (!needle[1]) return tav_wcschr(hay, *needle);
    const size_t length = scan::Length(needle);
    Patience patience(hay);
    const TavChar* found = scan::FindNeedle(hay, needle, length, patience);
    if (patience.IsOver()) {
        found = BorderSearch(needle, length).Find(found, [=](const TavChar* p) {
            return scan::CommonLength<Fold::None>(needle, p, length) == length;
        });
    }
    return const_cast<TavChar*>(found);
}
