// The path helpers beside the naive models, each buffer with no more room than is promised and a forbidden page
// right behind it or right in front.
#include "input.h"

#include "support/guarded.h"
#include "support/path_models.h"

#include <algorithm>

namespace {

using Text = path_models::Text;
using At = GuardedMemory::At;

constexpr size_t kShortestVolume = 9; // "/Volumes/"

// The path in memory of `units`.
class Buffer {
public:
    Buffer(const Text& path, size_t units, At at) : memory_(units * sizeof(TavChar), at) {
        memcpy(data(), path.c_str(), (path.size() + 1) * sizeof(TavChar));
    }
    TavChar* data() { return static_cast<TavChar*>(memory_.data()); }

private:
    GuardedMemory memory_;
};

// Only the parents of "." and ".." are longer than the paths, by up to three units.
size_t Growth(const Text& path) {
    const Text last = path.substr(path.rfind(u'/') + 1);
    return last == u"." || last == u".." ? 3 : 0;
}

void ExpectEdited(const Text& path, const Text& more, At at) {
    const size_t units = path.size() + 1;
    const GuardedText<TavChar> other(more, at);

    Buffer appended(path, units + more.size() + 1, at);
    Expect(TavPathAppend(appended.data(), other.get()) == 1);
    Expect(appended.data() == path_models::Appended(path, more));

    Buffer parent(path, units + Growth(path), at);
    Expect(TavPathRemoveFileSpec(parent.data()) == !path.empty());
    Expect(parent.data() == path_models::FileSpecRemoved(path));

    Buffer bare(path, units, at);
    TavPathRemoveExtension(bare.data());
    Expect(bare.data() == path_models::ExtensionRemoved(path));

    const Text closed = path_models::SlashAdded(path);
    Buffer added(path, closed.size() + 1, at);
    Expect(TavPathAddSlash(added.data()) == added.data() + closed.size() && added.data() == closed);

    const Text open = path_models::SlashRemoved(path);
    Buffer removed(path, units, at);
    Expect(TavPathRemoveSlash(removed.data()) == removed.data() + open.size() && removed.data() == open);
}

void ExpectFound(const Text& path, const Text& other, At at) {
    const GuardedText<TavChar> text(path, at);
    const GuardedText<TavChar> second(other, at);
    Expect(TavPathFindExtension(text.get()) == text.get() + path_models::ExtensionAt(path));
    Expect(TavPathFindFileName(text.get()) == text.get() + path_models::FileNameAt(path));
    if (path.size() <= kShortestVolume) Expect(TavPathIsRoot(text.get()) == (path == u"/"));
    const bool starts = path.size() >= other.size() && other.size() < 1024 &&
                        tav_wcscmpi(path.substr(0, other.size()).c_str(), other.c_str()) == 0;
    Expect(TavPathIsSubOnPath(text.get(), second.get()) == starts);

    // With "/Volumes" and "~" volumes and people matter; two empty paths are not in the model.
    if ((path + other).find_first_of(u"~vV") != Text::npos || (path + other).empty()) return;
    const Text common = path_models::Common(path, other);
    GuardedMemory out((std::min(path.size(), other.size()) + 2) * sizeof(TavChar), at);
    auto* units = static_cast<TavChar*>(out.data());
    Expect(TavPathCommonPrefix(text.get(), second.get(), units) == static_cast<int32_t>(common.size()));
    Expect(units == common);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const At at = input.Byte() % 2 == 0 ? At::End : At::Start;
    const Text path = input.Text();
    // Often with the same front.
    const Text more = path.substr(0, input.Byte()) + input.Text();
    ExpectEdited(path, more, at);
    ExpectFound(path, more, at);
    return 0;
}
