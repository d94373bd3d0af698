// Turning a written file into a symbolic link: the link is made under a passing name, given the file's dates
// and owner and renamed over the file, so that there is a whole file or a whole link at every moment. What
// was set on the file beyond that goes with it, since links have no metadata and no sidecar.
#include "platform/linux/links.h"

#include "platform/linux/attributes.h"
#include "platform/linux/errors.h"
#include "platform/linux/fork_table.h"
#include "platform/linux/metadata.h"
#include "platform/linux/system_calls.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

constexpr uint8_t kLinkFinderInfo[8] = {'s', 'l', 'n', 'k', 'r', 'h', 'a', 'p'};

bool IsLinkFinderInfo(const uint8_t (&finderInfo)[16]) {
    return std::memcmp(finderInfo, kLinkFinderInfo, sizeof(kLinkFinderInfo)) == 0;
}

void FillLinkFinderInfo(uint8_t* finderInfo) {
    std::copy(std::begin(kLinkFinderInfo), std::end(kLinkFinderInfo), finderInfo);
}

// Reads the whole data fork as the text of a link.
static OSErr ReadText(const Place& place, char (&text)[PATH_MAX]) {
    Descriptor file(OpenName(place.folder.descriptor(), place.name, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    struct statx facts;
    if (!file) return LastOpenError();
    if (FactsAt(file.number(), "", AT_EMPTY_PATH, facts) < 0) return LastError();
    if (!SameObject(facts, place.facts)) return fnfErr;
    if (facts.stx_size == 0 || facts.stx_size >= sizeof(text)) return paramErr;
    const ssize_t count = ReadFully(file.number(), text, sizeof(text) - 1, 0);
    if (count < 0) return LastError();
    text[count] = 0;
    return count > 0 && std::strlen(text) == static_cast<size_t>(count) ? noErr : paramErr;
}

// Makes the link under a name that nothing else has.
static OSErr MakeLink(int folder, const char* text, char (&name)[64]) {
    static std::atomic<unsigned> count = 0;
    for (unsigned tries = 0; tries < 100; ++tries) {
        const unsigned number = count.fetch_add(1, std::memory_order_relaxed);
        std::snprintf(name, sizeof(name), ".TavPort-link-%ld-%u", static_cast<long>(getpid()), number);
        if (Retry([&] { return symlinkat(text, folder, name); }) == 0) return noErr;
        if (LastErrorNumber() != EEXIST) break;
    }
    return LastError();
}

// The link looks like the file that it replaces; an owner that may not be set stays the maker.
static OSErr Dress(int folder, const char* name, const struct statx& facts, struct statx& linkFacts) {
    timespec times[2] = {};
    times[0].tv_sec = static_cast<time_t>(facts.stx_atime.tv_sec);
    times[0].tv_nsec = static_cast<long>(facts.stx_atime.tv_nsec);
    times[1].tv_sec = static_cast<time_t>(facts.stx_mtime.tv_sec);
    times[1].tv_nsec = static_cast<long>(facts.stx_mtime.tv_nsec);
    if (Retry([&] { return utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW); }) < 0) return LastError();
    const int given =
        Retry([&] { return fchownat(folder, name, facts.stx_uid, facts.stx_gid, AT_SYMLINK_NOFOLLOW); });
    if (given < 0 && LastErrorNumber() != EPERM) return LastError();
    return FactsAt(folder, name, AT_SYMLINK_NOFOLLOW, linkFacts) < 0 ? LastError() : noErr;
}

static OSErr Replace(const Place& place, const char* name) {
    const int folder = place.folder.descriptor();
    struct statx facts;
    if (FactsAt(folder, place.name, AT_SYMLINK_NOFOLLOW, facts) < 0) return LastError();
    if (!SameObject(facts, place.facts)) return fnfErr;
    return Retry([&] { return renameat(folder, name, folder, place.name); }) < 0 ? LastError() : noErr;
}

OSErr TurnIntoLink(const Place& place) {
    if (!S_ISREG(place.facts.stx_mode)) return paramErr;
    if (OpenForkFlags(place.facts)) return fBsyErr;
    const int folder = place.folder.descriptor();
    char text[PATH_MAX], name[64];
    OSErr result = ReadText(place, text);
    if (result == noErr) result = MakeLink(folder, text, name);
    if (result != noErr) return result;
    struct statx linkFacts;
    result = Dress(folder, name, place.facts, linkFacts);
    if (result == noErr) result = Replace(place, name);
    if (result != noErr) {
        (void)Retry([&] { return unlinkat(folder, name, 0); });
        return result;
    }
    ObjectReplaced(place, linkFacts);
    return RemoveSidecar(folder, place.name);
}
