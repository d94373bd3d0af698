// Paths to references, and the walk from folder to folder.
// A path that exists as written costs one look at it: the number of its parent is remembered by the parent's
// path, and a reference that this leads astray is put right when it is used (FoldersInPlaceOf). Everything
// else, links, dots and names in other letter case, is walked name by name. The platform compares names
// without regard to case on the disk itself; here the exact name has precedence. Sections: folders by path,
// walking, making references.
#include "platform/linux/lookup.h"

#include "platform/linux/caseless.h"
#include "platform/linux/current_task.h"
#include "platform/linux/folders.h"
#include "platform/linux/looks.h"
#include "platform/linux/reference_state.h"
#include "platform/linux/system_calls.h"
#include "platform/references.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool IsDots(const char* name, size_t length) {
    return length == 0 || (length <= 2 && name[0] == '.' && name[length - 1] == '.');
}

// A path cut into the folder's part and the last name. "/" and paths that end in dots have no last name.
struct Parts {
    const char* path;
    size_t folderLength; // without slashes at its end
    const char* name;
    size_t nameLength;
    bool slashAfter;

    bool HasName() const { return !IsDots(name, nameLength) && nameLength <= 255; }
};

size_t WithoutSlashes(const char* path, size_t length) {
    while (length > 0 && path[length - 1] == '/') --length;
    return length;
}

Parts Split(const char* path, size_t length) {
    size_t end = WithoutSlashes(path, length);
    size_t begin = end;
    while (begin > 0 && path[begin - 1] != '/') --begin;
    return {path, WithoutSlashes(path, begin), path + begin, end - begin, end < length};
}

// ---- Folders by path ----

constexpr uint64_t kTrusted = 50000; // nanoseconds for which a path is taken to lead where it led

// The entry still says where the folder is.
bool Holds(const FolderPaths::Entry& entry, const FolderRecord* record) {
    return entry.id == kRootFolder ||
           (record && record->parent == entry.parent && record->nameHash == entry.nameHash);
}

// Where the path led a moment ago, from memory. `object` is what has just been seen at it, or null.
bool Recall(const char* path, size_t length, const struct statx* object, FolderID& id) {
    const uint64_t now = MonotonicNow();
    if (length == 0 || QuestionsAreKept() || !IsMountViewRecent(now)) return false;
    StateLock state;
    const FolderPaths::Entry* entry = state->paths.Find(LastMountView(), path, length);
    if (!entry || now - entry->checked > kTrusted) return false;
    const FolderRecord* record = state->folders.Find(entry->id);
    if (!record || !record->byNumber || !Holds(*entry, record)) return false;
    if (object && record->mount != MountOf(*object)) return false; // something may be mounted on the way now
    id = entry->id;
    return true;
}

bool Confirm(MountView view, const char* path, size_t length, uint64_t now, const struct statx& facts,
             FolderID& id) {
    StateLock state;
    FolderPaths::Entry* entry = state->paths.Find(view, path, length);
    if (!entry || entry->id == kRootFolder) return false;
    const FolderRecord* record = state->folders.Find(entry->id);
    // Where the name is the identity, any folder would do, and a link on the way may lead elsewhere now.
    if (!record || !record->byNumber || !Holds(*entry, record) || !Matches(IdentityOf(*record), facts))
        return false;
    if (record->mount != MountOf(facts)) return false;
    entry->checked = now;
    id = entry->id;
    return true;
}

void Keep(MountView view, const char* path, size_t length, uint64_t now, FolderID id) {
    constexpr size_t kLongest = 1024; // keeps the memory bounded
    StateLock state;
    const FolderRecord* record = state->folders.Find(id);
    if (!record || length > kLongest) return;
    state->paths.Remember({view, id, record->parent, record->nameHash, now, std::string(path, length)});
}

OSErr EnterByPath(const std::string& path, const struct statx& facts, FolderID& id) {
    Parts parts = Split(path.c_str(), path.size());
    FolderID parent;
    constexpr auto kMostNames = 32; // each takes room on the stack; a walk goes name by name
    const bool isShort = std::count(path.begin(), path.end(), '/') <= kMostNames;
    if (S_ISDIR(facts.stx_mode) && parts.HasName() && isShort) {
        OSErr result = FolderAtPath(path.c_str(), parts.folderLength, parent);
        return result != noErr ? result : EnterFolder(parent, parts.name, facts, id);
    }
    Place place;
    OSErr result = WalkPath(kRootFolder, path, {.followLast = true}, place);
    return result != noErr ? result : FolderNumber(place, id);
}

} // namespace

OSErr FolderAtPath(const char* path, size_t length, FolderID& id) {
    if (length == 0) {
        ForgetMountView();
        id = kRootFolder;
        return noErr;
    }
    const uint64_t now = MonotonicNow();
    std::string text(path, length);
    struct statx facts;
    if (FactsAt(AT_FDCWD, text.c_str(), AT_SYMLINK_NOFOLLOW, facts) < 0) return LastError();
    struct statx target = facts;
    if (S_ISLNK(facts.stx_mode) && FactsAt(AT_FDCWD, text.c_str(), 0, target) < 0) return LastError();
    if (!S_ISDIR(target.stx_mode)) return errFSNotAFolder;
    if (Confirm(LastMountView(), path, length, now, target, id)) {
        MountViewHolds(now);
        return noErr;
    }
    ForgetMountView(); // it leads elsewhere, perhaps below another root
    const MountView view = CurrentMountView(now);
    if (Confirm(view, path, length, now, target, id)) return noErr;
    OSErr result = EnterByPath(text, facts, id);
    if (result == noErr) Keep(view, path, length, now, id);
    return result;
}

std::vector<FolderID> FoldersInPlaceOf(FolderID id) {
    constexpr size_t kMostPaths = 8;
    ForgetMountView();
    std::vector<std::string> paths;
    {
        StateLock state;
        size_t position = 0;
        while (const FolderPaths::Entry* entry = state->paths.Next(id, position)) {
            paths.push_back(entry->path);
            if (paths.size() == kMostPaths) break;
        }
    }
    std::vector<FolderID> folders;
    for (const std::string& path : paths) {
        Place place;
        FolderID found;
        if (WalkPath(kRootFolder, path, {.followLast = true}, place) == noErr &&
            FolderNumber(place, found) == noErr)
            folders.push_back(found);
    }
    return folders;
}

// ---- Walking ----

namespace {

class PathWalk {
public:
    PathWalk(FolderID start, std::string path, WalkOptions options)
        : folder_(start), path_(std::move(path)), options_(options), ownRest_(path_.size()) {}

    OSErr Run(Place& place) {
        if (path_[0] == '/') folder_ = kRootFolder;
        for (;;) {
            std::string name = TakeName();
            if (name.empty()) return PlaceOfFolder(folder_, place);
            OSErr result = name == "." ? noErr : name == ".." ? GoUp() : GoDown(name, place);
            if (result != noErr || finished_) return result;
        }
    }

private:
    std::string TakeName() {
        at_ = path_.find_first_not_of('/', at_);
        if (at_ == std::string::npos) at_ = path_.size();
        size_t end = std::min(path_.find('/', at_), path_.size());
        std::string name = path_.substr(at_, end - at_);
        at_ = end;
        return name;
    }

    OSErr GoUp() {
        FolderID parent = ParentNumber(folder_);
        if (parent == kNoFolder) return fnfErr;
        if (parent != kRootParent) folder_ = parent;
        return noErr;
    }

    OSErr GoDown(const std::string& name, Place& place) {
        if (name.size() > 255) return bdNamErr;
        std::strcpy(place.name, name.c_str());
        OSErr result = Find(place);
        if (result != noErr) return result;
        bool last = at_ == path_.size();
        if (S_ISDIR(place.facts.stx_mode)) return EnterFolder(folder_, place.name, place.facts, folder_);
        if (S_ISLNK(place.facts.stx_mode) && (!last || options_.followLast)) return Splice(place);
        if (!last) return errFSNotAFolder;
        place.folderID = folder_;
        place.isLink = S_ISLNK(place.facts.stx_mode);
        place.standsForTarget = false;
        finished_ = true;
        return noErr;
    }

    OSErr Find(Place& place) {
        OSErr result = OpenFolder(folder_, place.folder);
        if (result != noErr) return result;
        result = FactsOfName(place.folder, place.name, place.facts);
        // A link's text means exactly what it says, as it does for everyone else on the host.
        bool ownName = path_.size() - at_ + std::strlen(place.name) <= ownRest_;
        if (result != fnfErr || !options_.caseless || !ownName) return result;
        std::string sought = place.name;
        result = FindCaseless(folder_, sought.c_str(), place.name);
        return result != noErr ? result : FactsOfName(place.folder, place.name, place.facts);
    }

    OSErr Splice(const Place& link) {
        constexpr int kMostLinks = 40; // the kernel's own limit
        if (++links_ > kMostLinks) return ErrorFromErrno(ELOOP);
        char target[PATH_MAX];
        ssize_t length =
            Retry([&] { return readlinkat(link.folder.descriptor(), link.name, target, sizeof target - 1); });
        if (length < 0) return LastError();
        if (length == 0) return fnfErr;
        ownRest_ = std::min(ownRest_, path_.size() - at_);
        path_ = std::string(target, static_cast<size_t>(length)) + path_.substr(at_);
        at_ = 0;
        if (path_[0] == '/') folder_ = kRootFolder;
        return noErr;
    }

    FolderID folder_;
    std::string path_;
    WalkOptions options_;
    size_t at_ = 0;
    size_t ownRest_; // bytes at the end that come from the path itself, not from a link
    int links_ = 0;
    bool finished_ = false;
};

} // namespace

OSErr WalkPath(FolderID start, std::string path, WalkOptions options, Place& place) {
    return PathWalk(start, std::move(path), options).Run(place);
}

OSErr FollowLink(const Place& link, Place& target) {
    return WithoutExceptions(
        [&] { return WalkPath(link.folderID, link.name, {.followLast = true}, target); });
}

// ---- Making references ----

namespace {

struct Request {
    const char* path;
    size_t length;
    bool mayDangle;
    FSRef* ref;
    Boolean* isDirectory;
};

// Gives what was asked for once the object is known. A link counts as what it leads to.
OSErr Answer(const Request& request, FolderID folder, const char* name, const struct statx& facts,
             bool isFolder) {
    if (request.ref) {
        OSErr result = MakeReference(folder, name, facts, true, *request.ref);
        if (result != noErr) return result;
        NoteLook(*request.ref, folder, name, facts);
    }
    if (request.isDirectory) *request.isDirectory = isFolder;
    return noErr;
}

OSErr AnswerPlace(const Request& request, const Place& place) {
    bool isFolder = S_ISDIR(place.facts.stx_mode);
    if (place.isLink) {
        struct statx target;
        int failed = FactsAt(place.folder.descriptor(), place.name, 0, target);
        if (failed && !request.mayDangle) return LastError();
        isFolder = !failed && S_ISDIR(target.stx_mode);
    }
    return Answer(request, place.folderID, place.name, place.facts, isFolder);
}

// For paths that are not what they say: with links, dots or other letter case in them.
OSErr RefByWalking(const Request& request) {
    Place place;
    OSErr result = WalkPath(kRootFolder, request.path, {.caseless = true}, place);
    return result != noErr ? result : AnswerPlace(request, place);
}

// For a name that its folder does not hold as written.
OSErr RefByCaselessName(const Request& request, const Parts& parts) {
    FolderID folder;
    OSErr result = noErr;
    // Whether there is something may be answered as of a moment ago; what a reference will be used for may not.
    if (request.ref || !Recall(request.path, parts.folderLength, nullptr, folder))
        result = FolderAtPath(request.path, parts.folderLength, folder);
    if (result == fnfErr) return RefByWalking(request);
    if (result != noErr) return result;
    char actual[256];
    result = FindCaseless(folder, std::string(parts.name, parts.nameLength).c_str(), actual);
    if (result != noErr || parts.slashAfter) return result != noErr ? result : RefByWalking(request);
    Place place;
    result = WalkPath(folder, actual, {}, place);
    return result != noErr ? result : AnswerPlace(request, place);
}

OSErr RefOfLink(const Request& request, const Parts& parts, const char* path, const struct statx& facts) {
    struct statx target;
    int failed = FactsAt(AT_FDCWD, path, 0, target);
    if (failed && !request.mayDangle) return LastError();
    FolderID folder = kNoFolder;
    OSErr result = request.ref ? FolderAtPath(request.path, parts.folderLength, folder) : noErr;
    if (result != noErr) return result;
    return Answer(request, folder, parts.name, facts, !failed && S_ISDIR(target.stx_mode));
}

// Whether the path leads somewhere as it stands; the only question that a request without a reference asks.
bool Exists(const Request& request) {
    if (!request.isDirectory)
        return Retry([&] { return faccessat(AT_FDCWD, request.path, F_OK, AT_EACCESS); }) == 0;
    struct statx facts;
    if (FactsAt(AT_FDCWD, request.path, 0, facts) < 0) return false;
    *request.isDirectory = S_ISDIR(facts.stx_mode);
    return true;
}

[[gnu::always_inline]] inline OSErr RefByPath(const Request& request) {
    const bool mayExist = !request.ref && !request.mayDangle;
    if (mayExist && Exists(request)) return noErr;
    const bool isMissing = mayExist && LastErrorNumber() == ENOENT;
    Parts parts = Split(request.path, request.length);
    if (!parts.HasName() || request.length >= PATH_MAX) return RefByWalking(request);
    // A link that leads nowhere is missing, too: the name is found, but not what it stands for.
    if (isMissing) return RefByCaselessName(request, parts);
    struct statx facts;
    const char* path = request.path;
    char withoutSlash[PATH_MAX];
    if (parts.slashAfter) {
        const size_t nameAt = static_cast<size_t>(parts.name - request.path);
        std::memcpy(withoutSlash, request.path, nameAt + parts.nameLength);
        withoutSlash[nameAt + parts.nameLength] = 0;
        path = withoutSlash;
        parts.name = withoutSlash + nameAt;
    }
    if (FactsAt(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, facts) < 0) {
        OSErr result = LastError();
        return result == fnfErr ? RefByCaselessName(request, parts) : result;
    }
    if (S_ISLNK(facts.stx_mode))
        return parts.slashAfter ? RefByWalking(request) : RefOfLink(request, parts, path, facts);
    if (parts.slashAfter && !S_ISDIR(facts.stx_mode)) return errFSNotAFolder;
    FolderID folder = kNoFolder;
    OSErr result = noErr;
    // The identity of a file tells later whether it is in that folder; but another name of it would be found there, too,
    // and a folder's place is noted at once.
    const bool mayRecall = S_ISREG(facts.stx_mode) && facts.stx_nlink == 1;
    if (request.ref && !(mayRecall && Recall(path, parts.folderLength, &facts, folder)))
        result = FolderAtPath(path, parts.folderLength, folder);
    return result != noErr ? result : Answer(request, folder, parts.name, facts, S_ISDIR(facts.stx_mode));
}

} // namespace

OSStatus FSPathMakeRefWithOptions(const uint8_t* path, uint32_t options, FSRef* ref, Boolean* isDirectory) {
    if (!path) return paramErr;
    if (path[0] != '/') return fnfErr;
    const TerminationHold hold;
    auto text = reinterpret_cast<const char*>(path);
    bool mayDangle = (options & kFSPathMakeRefDoNotFollowLeafSymlink) != 0;
    Request request = {text, std::strlen(text), mayDangle, ref, isDirectory};
    return WithoutExceptions([&] { return RefByPath(request); });
}

OSStatus FSPathMakeRef(const uint8_t* path, FSRef* ref, Boolean* isDirectory) {
    return FSPathMakeRefWithOptions(path, kFSPathMakeRefDefaultOptions, ref, isDirectory);
}
