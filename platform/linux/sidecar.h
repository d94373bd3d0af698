// Inside the provider: the AppleDouble file "._name" that stands beside "name", open.
#pragma once

#include "platform/linux/appledouble.h"
#include "platform/linux/attributes.h"
#include "platform/linux/references.h"

#include <optional>

// The bytes of a file between two offsets.
struct Extent {
    uint64_t offset;
    uint64_t length;
};

class Sidecar {
public:
    // -43 when the object has none, -36 when what stands there is broken.
    OSErr Open(const Place& place, bool forWriting);

    // Opens it for writing or makes one; -48 when an ordinary entry has its name.
    OSErr OpenOrMake(const Place& place);

    // The facts that it holds; on volumes with attributes only the Finder information means anything.
    OSErr GetFacts(appledouble::Facts& facts) const;

    // Stores the facts, and removes a sidecar that then holds nothing. What a foreign one has no place for
    // and cannot be given one is dropped.
    OSErr SetFacts(const appledouble::Facts& facts);

    // Where the resource fork is; nothing when there is none.
    std::optional<Extent> ResourceFork() const;

    // Makes an empty resource fork; -1421 when there is one. What Macs write for want of a resource fork, 286
    // bytes that say so, is none.
    OSErr MakeResourceFork();

    // Makes sure that nothing follows the resource fork, so that it can grow, and says where it is then.
    OSErr MakeResourceForkLast(Extent& fork);

    // Where the header says how long the resource fork is.
    uint32_t ResourceForkLengthAt() const;

    int descriptor() const { return file_.number(); }
    // Whether it failed to open because its bytes make no sense, as opposed to their not being had.
    bool IsBroken() const { return isBroken_; }

    int ReleaseDescriptor() { return file_.Release(); }

private:
    struct Gathered;
    OSErr ReadHeader();
    OSErr Make();
    OSErr Gather(Gathered& gathered) const;
    OSErr Scatter(const Gathered& before, const Gathered& after) const;
    bool CanBeRewritten() const;
    OSErr Rewrite(const appledouble::Facts& facts, bool withFork);
    OSErr WriteCopy(int to, const appledouble::Facts& facts, bool withFork) const;
    bool HoldsNothing(const Gathered& gathered) const;
    bool IsBlank(const appledouble::Entry& fork) const;
    OSErr AddResourceFork(bool& hasRoom);
    OSErr MoveResourceFork(const appledouble::Entry& fork);

    const Place* place_ = nullptr;
    Descriptor file_;
    appledouble::Header header_;
    bool isBroken_ = false;
    uint64_t size_ = 0;
};

// The name "._name"; empty when it would be too long.
struct SidecarName {
    char bytes[256];
    explicit SidecarName(const char* name);
    explicit operator bool() const { return bytes[0] != 0; }
};

// Opens the entry `sidecar` if it is a regular file that begins with the AppleDouble magic and was not found
// standing alone before its neighbour came. -43 when it is anything else.
OSErr OpenAppleDouble(int folder, const char* sidecar, bool forWriting, Descriptor& file,
                      struct statx& facts);

// Gives the sidecar, where there is one, the owner and the rights that its file has now.
void MatchSidecar(const Place& place);

// Makes what stands at "._name" an ordinary entry for good, if it would be the sidecar of the object that has
// just come to `name` without one of its own. -42 or -108 when it could not be looked at.
OSErr DisownOrphan(int folder, const char* name);

// Makes a new file, open as `file`, that is to be filled with a copy an ordinary entry for good, if it could be a
// sidecar by its name: what is a file of its own at the source is one there, too.
void KeepOrdinary(const Place& source, const Place& copy, int file);

// Counts one more sidecar (see SidecarsMade).
void CountSidecar();
