// Opening folders by number, on openat2 and the folder table.
// The platform's catalog leads from a number to a folder at once. Here the names on the way are opened from
// the nearest folder that is open already, as many at a time as a path can hold and never through a link;
// what is reached must be the folder that the number was given to. A folder that others renamed is found by
// its inode. Sections: devices, looking through folders, opening, entering, the way up.
#include "platform/linux/folders.h"

#include "platform/linux/entries.h"
#include "platform/linux/idle_iterators.h"
#include "platform/linux/reference_state.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/trees.h"
#include "platform/linux/with_descriptors.h"

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/vfs.h>
#include <vector>

namespace {

bool SameFolder(const struct statx& a, const struct statx& b) {
    return a.stx_ino == b.stx_ino && DeviceOf(a) == DeviceOf(b) && MountOf(a) == MountOf(b);
}

// Notes where a folder is now, its name also when it is long.
void NotePlace(FolderID id, FolderID parent, const char* name) {
    StateLock state;
    state->folders.SetPlace(id, parent, name);
    const FolderRecord* record = state->folders.Find(id);
    if (record && !record->HasName()) state->longNames.Remember(IdentityOf(*record), parent, name);
}

// ---- Opening ----

struct Step {
    FolderID id;
    FolderID parent;
    Identity identity;
    uint64_t nameHash;
    std::string name; // empty when it is not remembered
};

Step StepTo(FolderID id, const FolderRecord& record, const LongNames& longNames) {
    Step step{id, record.parent, IdentityOf(record), record.nameHash, {}};
    char name[256];
    if (record.HasName())
        step.name.assign(record.name, record.nameLength);
    else if (longNames.Recall(step.identity, record.parent, record.nameHash, name))
        step.name = name;
    return step;
}

// Takes the descriptor over when it is the folder that the step leads to. Where the name is the identity, it may
// be another folder's the next time, so that nothing is kept open for later.
OSErr Accept(MountView view, const Step& step, int descriptor, FolderHandle& handle) {
    if (descriptor < 0) return LastError() == errFSNotAFolder ? fnfErr : LastError();
    struct statx facts;
    if (FactsAt(descriptor, "", AT_EMPTY_PATH, facts) < 0 || !Matches(step.identity, facts)) {
        Close(descriptor);
        return fnfErr;
    }
    handle = step.identity.byNumber ? StateLock()->descriptors.Put(view, step.id, descriptor)
                                    : FolderHandle::Of(descriptor);
    return noErr;
}

// The way down from an open folder; `chain` leads upwards, its first step is the goal.
class Descent {
public:
    Descent(MountView view, std::vector<Step> chain)
        : view_(view), chain_(std::move(chain)), left_(chain_.size()) {}

    OSErr Run(FolderHandle& handle) {
        size_t most = left_;
        while (left_ > 0) {
            size_t count = Gather(most);
            OSErr result = count > 1 ? OpenSeveral(handle, count) : OpenOne(handle);
            if (result == fnfErr && count > 1) {
                most = count / 2; // someone renamed a folder on the way: close in on it
                continue;
            }
            if (result != noErr) return result;
            most = left_;
        }
        return noErr;
    }

private:
    // Whoever goes up a deep tree step by step asks for the parents next: one on the way stays open for them.
    static constexpr size_t kRest = 48;
    static constexpr size_t kLongest = 4000; // bytes of a path, below the kernel's limit

    // How many of the next steps one call can take; their names joined in path_.
    size_t Gather(size_t most) {
        path_.clear();
        size_t end = left_ > kRest ? kRest : 0;
        size_t count = 0;
        for (size_t at = left_; at > end && count < most; --at, ++count) {
            const std::string& name = chain_[at - 1].name;
            if (name.empty() || path_.size() + 1 + name.size() > kLongest) break;
            if (count) path_ += '/';
            path_ += name;
        }
        return count;
    }

    OSErr OpenSeveral(FolderHandle& handle, size_t count) {
        int from = handle.descriptor();
        int opened =
            OpenSparingly([&] { return OpenWithoutLinks(from, path_.c_str(), O_PATH | O_DIRECTORY); });
        OSErr result = Accept(view_, chain_[left_ - count], opened, handle);
        if (result == noErr) left_ -= count;
        return opened < 0 && LastErrorNumber() == ELOOP ? fnfErr : result;
    }

    OSErr OpenOne(FolderHandle& handle) {
        const Step& step = chain_[left_ - 1];
        FolderHandle parent = handle;
        OSErr result = fnfErr;
        if (!step.name.empty()) result = OpenNamed(parent, step, step.name.c_str(), handle);
        if (result == fnfErr) result = OpenRenamed(parent, step, handle);
        if (result == noErr) --left_;
        return result;
    }

    OSErr OpenNamed(const FolderHandle& parent, const Step& step, const char* name, FolderHandle& handle) {
        int opened = OpenSparingly([&] { return OpenName(parent.descriptor(), name, O_PATH | O_DIRECTORY); });
        OSErr result = Accept(view_, step, opened, handle);
        return opened < 0 && LastErrorNumber() == ELOOP ? fnfErr : result;
    }

    OSErr OpenRenamed(const FolderHandle& parent, const Step& step, FolderHandle& handle) {
        char name[256];
        struct statx facts;
        OSErr result = FindInFolder(parent, step.identity, step.nameHash, name, facts);
        if (result != noErr) return result;
        NotePlace(step.id, step.parent, name);
        return OpenNamed(parent, step, name, handle);
    }

    MountView view_;
    std::vector<Step> chain_;
    size_t left_;
    std::string path_;
};

// Opens "/"; the view is the one that it belongs to, if the thread has got another root since it was looked at.
OSErr OpenRoot(MountView& view, FolderHandle& handle) {
    int descriptor = OpenSparingly([] { return OpenName(AT_FDCWD, "/", O_PATH | O_DIRECTORY); });
    struct statx facts;
    if (descriptor < 0) return LastError();
    if (FactsAt(descriptor, "", AT_EMPTY_PATH, facts) < 0) {
        const OSErr result = LastError();
        Close(descriptor);
        return result;
    }
    if (view != MountViewFrom(facts)) ForgetMountView();
    view = MountViewFrom(facts);
    handle = StateLock()->descriptors.Put(view, kRootFolder, descriptor);
    return noErr;
}

} // namespace

// ---- Devices ----

static bool AskForTraits(FolderID folder, const char* name, DeviceTraits& traits) {
    FolderHandle handle;
    if (OpenFolder(folder == kRootParent ? kRootFolder : folder, handle) != noErr) return false;
    int descriptor = OpenSparingly([&] { return OpenName(handle.descriptor(), name, O_PATH); });
    if (descriptor < 0) return false;
    struct statfs volume;
    int failed = Retry([&] { return fstatfs(descriptor, &volume); });
    Close(descriptor);
    if (!failed) traits = TraitsOfFileSystem(static_cast<unsigned long>(volume.f_type));
    return !failed;
}

DeviceTraits TraitsOf(FolderID folder, const char* name, const struct statx& facts) {
    // Nothing else tells a volume from one that had its numbers before and was unmounted.
    constexpr uint64_t kBelieved = 1'000'000'000;
    const uint64_t now = MonotonicTick(), oldest = now > kBelieved ? now - kBelieved : 0;
    const uint32_t device = DeviceOf(facts), mount = MountOf(facts);
    DeviceTraits traits = {true, true, false}; // as most are
    if (StateLock()->devices.Find(device, mount, oldest, traits)) return traits;
    if (AskForTraits(folder, name, traits))
        StateLock()->devices.Remember(device, mount, now, traits);
    else
        StateLock()->devices.Find(device, mount, 0, traits); // asked again next time
    return traits;
}

// ---- Looking through folders ----

OSErr FactsOfName(const FolderHandle& folder, const char* name, struct statx& facts) {
    return FactsAt(folder.descriptor(), name, AT_SYMLINK_NOFOLLOW, facts) < 0 ? LastError() : noErr;
}

OSErr FindInFolder(const FolderHandle& folder, const Identity& identity, uint64_t nameHash, char (&name)[256],
                   struct statx& facts) {
    bool found = false;
    OSErr result = VisitEntries(folder, [&](const DirectoryEntry& entry) {
        size_t length = std::strlen(entry.name);
        bool sameName = HashName(entry.name, length) == nameHash;
        bool sameNumber = identity.byNumber && entry.inode == identity.inode;
        if ((!sameName && !sameNumber) || length > 255) return false;
        if (FactsOfName(folder, entry.name, facts) != noErr || !Matches(identity, facts)) return false;
        if (!sameName && !S_ISDIR(facts.stx_mode) && facts.stx_nlink != 1) return false;
        std::memcpy(name, entry.name, length + 1);
        return found = true;
    });
    if (found) return noErr;
    return result == noErr ? fnfErr : MissingBecause(result);
}

// ---- Opening ----

OSErr OpenFolder(FolderID id, FolderHandle& handle) {
    MountView view = CurrentMountView(MonotonicNow());
    return WithoutExceptions([&] {
        std::vector<Step> chain;
        {
            StateLock state;
            for (FolderID at = id;;) {
                handle = state->descriptors.Get(view, at);
                if (handle.descriptor() >= 0 || at == kRootFolder) break;
                const FolderRecord* record = state->folders.Find(at);
                if (!record || chain.size() > state->folders.size()) return fnfErr;
                chain.push_back(StepTo(at, *record, state->longNames));
                at = record->parent;
            }
        }
        OSErr result = handle.descriptor() < 0 ? OpenRoot(view, handle) : noErr;
        if (result != noErr || chain.empty()) return result;
        return Descent(view, std::move(chain)).Run(handle);
    });
}

bool CloseIdleDescriptors() {
    const bool anyOfATree = CloseWhatTreeHolds(), anyResting = FreeRestingDescriptors();
    return StateLock()->descriptors.DropIdle() || anyResting || anyOfATree;
}

// ---- Entering ----

OSErr EnterFolder(FolderID parent, const char* name, const struct statx& facts, FolderID& id) {
    if (parent == kRootParent) {
        id = kRootFolder;
        return noErr;
    }
    Identity identity = IdentityOf(facts, TraitsOf(parent, name, facts));
    bool added = false;
    OSErr result = WithoutExceptions([&] {
        StateLock state;
        size_t before = state->folders.size();
        id = state->folders.Enter(identity, MountOf(facts), parent, name);
        added = state->folders.size() > before;
        if (std::strlen(name) > FolderRecord::kInlineName) state->longNames.Remember(identity, parent, name);
        return id == kNoFolder ? memFullErr : noErr;
    });
    if (added) SweepFolders();
    return result;
}

OSErr PlaceOfFolder(FolderID id, Place& place) {
    if (id == kRootFolder) {
        std::strcpy(place.name, ".");
        place.folderID = kRootParent;
        place.isLink = place.standsForTarget = false;
        OSErr result = OpenFolder(kRootFolder, place.folder);
        return result != noErr ? result : FactsOfName(place.folder, ".", place.facts);
    }
    FSRef ref;
    OSErr result = FolderReference(id, ref);
    return result != noErr ? result : Locate(ref, place);
}

OSErr FolderNumber(const Place& folder, FolderID& id) {
    if (!S_ISDIR(folder.facts.stx_mode)) return errFSNotAFolder;
    return EnterFolder(folder.folderID, folder.name, folder.facts, id);
}

OSErr OpenFolder(const Place& folder, FolderHandle& handle) {
    FolderID id;
    OSErr result = FolderNumber(folder, id);
    return result != noErr ? result : OpenFolder(id, handle);
}

FolderID ParentNumber(FolderID id) {
    StateLock state;
    const FolderRecord* record = state->folders.Find(id);
    return record ? record->parent : kNoFolder;
}

// ---- The way up ----

namespace {

struct Level {
    std::string name;
    struct statx facts;
};

// The name of a folder in its parent. What is mounted there shows another number in the listing, so that
// every folder is looked at when none has the number.
OSErr NameInParent(const FolderHandle& parent, const struct statx& folder, std::string& name) {
    auto look = [&](bool byNumber) {
        bool found = false;
        OSErr result = VisitEntries(parent, [&](const DirectoryEntry& entry) {
            struct statx facts;
            if (byNumber ? entry.inode != folder.stx_ino : entry.type != DT_DIR && entry.type != DT_UNKNOWN)
                return false;
            if (FactsOfName(parent, entry.name, facts) != noErr || !SameFolder(facts, folder)) return false;
            name = entry.name;
            return found = true;
        });
        if (found) return noErr;
        return result == noErr ? fnfErr : MissingBecause(result);
    };
    OSErr result = look(true);
    return result == fnfErr ? look(false) : result;
}

OSErr Climb(FolderHandle current, std::vector<Level>& levels) {
    Level level;
    if (FactsAt(current.descriptor(), "", AT_EMPTY_PATH, level.facts) < 0) return LastError();
    for (;;) {
        int above = OpenSparingly([&] { return OpenName(current.descriptor(), "..", O_PATH | O_DIRECTORY); });
        if (above < 0) return LastError();
        FolderHandle parent = FolderHandle::Of(above); // it has no number yet
        struct statx facts;
        if (FactsAt(above, "", AT_EMPTY_PATH, facts) < 0) return LastError();
        if (SameFolder(facts, level.facts)) return noErr;
        OSErr result = NameInParent(parent, level.facts, level.name);
        if (result != noErr) return result;
        levels.push_back(level);
        level.facts = facts;
        current = parent;
    }
}

} // namespace

OSErr FindWayUp(FolderID id) {
    return WithoutExceptions([&] {
        FolderHandle handle;
        OSErr result = OpenFolder(id, handle);
        std::vector<Level> levels;
        if (result == noErr) result = Climb(handle, levels);
        FolderID parent = kRootFolder;
        for (size_t at = levels.size(); result == noErr && at > 1; --at)
            result = EnterFolder(parent, levels[at - 1].name.c_str(), levels[at - 1].facts, parent);
        if (result == noErr && !levels.empty()) NotePlace(id, parent, levels.front().name.c_str());
        return result;
    });
}
