// What the catalog takes: facts of an object are stored in the metadata first, then its dates, its owner and
// last its mode, since each step may need the rights that the next takes away.
//
// A user may not give files away; who copies someone else's file gets one of his own, so an owner or group
// that the host denies is dropped, and with it the bits that would let others act as that owner. A mode that
// a volume without modes refuses its owner is dropped too. The date of the last attribute change is the
// host's own and cannot be set, nor can the hint of a text encoding.
#include "platform/linux/metadata.h"

#include "platform/linux/attributes.h"
#include "platform/linux/dates.h"
#include "platform/linux/errors.h"
#include "platform/linux/kept_dates.h"
#include "platform/linux/kept_files.h"
#include "platform/linux/object_facts.h"
#include "platform/linux/sidecar.h"
#include "platform/linux/trees.h"

#include <cerrno>
#include <optional>
#include <unistd.h>

constexpr FSCatalogInfoBitmap kMetadataFacts = kFSCatInfoNodeFlags | kFSCatInfoCreateDate |
                                               kFSCatInfoBackupDate | kFSCatInfoFinderInfo |
                                               kFSCatInfoFinderXInfo;
constexpr FSCatalogInfoBitmap kTimes = kFSCatInfoContentMod | kFSCatInfoAccessDate;
constexpr mode_t kModeBits = 07777;

static timespec TimeOrOmit(bool isWanted, const UTCDateTime& date) {
    const auto time = isWanted ? TimeFromDate(date) : std::nullopt;
    return time ? *time : timespec{0, UTIME_OMIT};
}

static FileTimes TimesOf(FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info) {
    return {TimeOrOmit(whichInfo & kFSCatInfoAccessDate, info.accessDate),
            TimeOrOmit(whichInfo & kFSCatInfoContentMod, info.contentModDate)};
}

static OSErr SetTimes(const HeldObject& object, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info) {
    const FileTimes times = TimesOf(whichInfo, info);
    if (times[1].tv_nsec != UTIME_OMIT) ForgetContentDate(object.facts());
    return object.SetTimes(times) == 0 ? noErr : LastError();
}

static bool IsDenied() {
    return LastErrorNumber() == EPERM || LastErrorNumber() == EINVAL;
}

// Sets what the host allows of owner and group; `isDropped` says that something is not as asked.
static OSErr SetOwner(const HeldObject& object, const FSPermissionInfo& permissions, bool& isDropped) {
    const struct statx& now = object.facts();
    isDropped = false;
    if (permissions.userID == now.stx_uid && permissions.groupID == now.stx_gid) return noErr;
    if (object.SetOwner(permissions.userID, permissions.groupID) == 0) return noErr;
    if (!IsDenied()) return LastError();
    isDropped = true;
    constexpr auto kSameUser = static_cast<uid_t>(-1);
    return object.SetOwner(kSameUser, permissions.groupID) == 0 || IsDenied() ? noErr : LastError();
}

static bool IsProtected(const struct statx& facts) {
    return facts.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND);
}

static OSErr SetMode(const HeldObject& object, mode_t mode) {
    if (object.SetMode(mode) == 0) return noErr;
    const bool isOwner = object.facts().stx_uid == geteuid() || geteuid() == 0;
    const bool isVolumesRefusal = LastErrorNumber() == EPERM && isOwner && !IsProtected(object.facts());
    return isVolumesRefusal || LastErrorNumber() == EOPNOTSUPP ? noErr : LastError();
}

static OSErr SetPermissions(const Place& place, const HeldObject& object, const FSPermissionInfo& permissions,
                            bool isAlone) {
    bool isDropped;
    const OSErr result = SetOwner(object, permissions, isDropped);
    if (result != noErr || place.isLink) return result;
    mode_t mode = permissions.mode & kModeBits;
    if (isDropped) mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
    const struct statx& now = object.facts();
    const bool isOwnerSame = permissions.userID == now.stx_uid && permissions.groupID == now.stx_gid;
    if (isOwnerSame && mode == (now.stx_mode & kModeBits)) return noErr;
    const OSErr second = SetMode(object, mode);
    if (second == noErr && !isAlone) MatchSidecar(place);
    return second;
}

namespace {
// What is known of an object that this library has made a moment ago.
struct Known {
    appledouble::Facts& facts;
    uint64_t sidecarsMade; // the count when it had no sidecar
};
} // namespace

static OSErr Apply(const Place& place, const HeldObject& object, FSCatalogInfoBitmap whichInfo,
                   const FSCatalogInfo& info, const Known* known) {
    OSErr result = noErr;
    if (whichInfo & kMetadataFacts)
        result = known ? StoreKnownFacts(place, object, whichInfo, info, known->facts)
                       : StoreFacts(place, object, whichInfo, info);
    if (result == noErr && (whichInfo & kTimes)) result = SetTimes(object, whichInfo, info);
    if (result == noErr && (whichInfo & kFSCatInfoPermissions)) {
        const bool isAlone = known && SidecarsMade() == known->sidecarsMade;
        result = SetPermissions(place, object, info.permissions, isAlone);
    }
    return result;
}

OSErr ApplyCatalogInfo(const Place& place, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info) {
    if (whichInfo & ~kFSCatInfoSettableInfo) return paramErr;
    HeldObject object;
    const OSErr result = object.Hold(place);
    return result == noErr ? Apply(place, object, whichInfo, info, nullptr) : result;
}

// Applies to a file that the thread keeps open, wherever it is by now.
static OSErr ApplyToKept(KeptFile& kept, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info) {
    HeldObject object;
    OSErr result = kept.isFresh ? OSErr{noErr} : LookAgain(kept);
    kept.isFresh = false;
    if (result == noErr) result = PayOwedDates(kept);
    if (result == noErr) result = object.Hold(kept.place, kept.file.number());
    const Known known = {kept.facts, kept.sidecarsMade};
    return result == noErr ? Apply(kept.place, object, whichInfo, info, kept.isNew ? &known : nullptr)
                           : result;
}

OSErr ApplyCatalogInfo(const FSRef& ref, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info) {
    if (whichInfo & ~kFSCatInfoSettableInfo) return paramErr;
    if (KeptFile* kept = FindKeptFile(ref); kept && kept->file) return ApplyToKept(*kept, whichInfo, info);
    Place place;
    {
        HeldObject object;
        const OSErr result = object.HoldGuessed(ref, place);
        if (result == noErr) return Apply(place, object, whichInfo, info, nullptr);
        if (result != fnfErr) return result;
    }
    const OSErr result = Locate(ref, place);
    return result == noErr ? ApplyCatalogInfo(place, whichInfo, info) : result;
}

// Whether the dates of a new file can be set when it has been written: that changes them anyway. Who may give
// the file to another owner may set its dates after that, too.
static bool DatesCanWait(FSCatalogInfoBitmap whichInfo, const FSCatalogInfo& info) {
    return (whichInfo & kFSCatInfoContentMod) && TimeFromDate(info.contentModDate);
}

OSErr FurnishNewObject(Place& made, FSCatalogInfoBitmap whichInfo, const FSCatalogInfo* info, NewFile* file) {
    OSErr result = noErr;
    if (!IsNewFolder(made.folderID)) result = DisownOrphan(made.folder.descriptor(), made.name);
    if (result != noErr || whichInfo == kFSCatInfoNone) return result;
    if (whichInfo & ~kFSCatInfoSettableInfo) return paramErr;
    HeldObject object;
    result = file ? object.Hold(made, file->descriptor) : object.Hold(made);
    appledouble::Facts facts;
    const Known known = {file ? file->stored : facts, SidecarsMade()};
    const bool wait = file && file->isToBeKept && DatesCanWait(whichInfo, *info);
    if (result == noErr) result = Apply(made, object, wait ? whichInfo & ~kTimes : whichInfo, *info, &known);
    if (result != noErr || !(whichInfo & kFSCatInfoContentMod) || !S_ISREG(made.facts.stx_mode))
        return result;
    if (wait) {
        result = KeepOwedDates(made, TimesOf(whichInfo, *info));
        file->owesDates = result == noErr;
        return result;
    }
    struct statx now;
    if (object.Look(now) != noErr) return noErr; // the date will be that of the last change
    made.facts = now;
    return KeepContentDate(made);
}
