// Where metadata lives: in an extended attribute, and on volumes that have none in the sidecar.
//
// A Mac that unpacked or copied files here may have left Finder information in a sidecar beside them although
// the volume has attributes; it counts as long as there is no attribute, just as a file server takes it over.
//
// An attribute that somebody else made keeps all that is in it. One that is broken counts as none and is
// replaced only when something is stored.
//
// The kernel shows and stores such attributes only where the mode lets the caller read and write the object,
// but what the catalog knows does not depend on the mode: an owner lends itself the rights for a moment.
// Sections: lending rights, loading, storing.
#include "platform/linux/object_facts.h"

#include "platform/linux/bare_objects.h"
#include "platform/linux/dates.h"
#include "platform/linux/errors.h"
#include "platform/linux/folders.h"
#include "platform/linux/metadata.h"
#include "platform/linux/sidecar.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/trees.h"

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/xattr.h>
#include <unistd.h>

using namespace appledouble;

// ---- Lending rights

constexpr mode_t kOwnRights = S_IRUSR | S_IWUSR;

// Runs `attempt` on an object of the caller's own with the rights to it that it needs. Both are lent always,
// so that nobody ever takes a mode for one to restore that somebody has lent from; another thread may take
// back its loan meanwhile, hence the tries. -5000 when nothing can be lent or it does not help.
template <typename Attempt>
static OSErr WithRightsLent(const Place& place, mode_t needed, Attempt attempt) {
    constexpr int kTries = 8;
    OSErr result = afpAccessDenied;
    for (int i = 0; i < kTries && result == afpAccessDenied; ++i) {
        HeldObject object;
        if (object.Hold(place) != noErr || object.facts().stx_uid != geteuid()) return afpAccessDenied;
        const mode_t mode = object.facts().stx_mode & 07777;
        const bool lends = (mode & needed) != needed;
        if (lends && object.SetMode(mode | kOwnRights) < 0) return afpAccessDenied;
        result = attempt(object);
        const int error = LastErrorNumber();
        if (lends && object.SetMode(mode) < 0 && result == noErr) return LastError();
        SetLastErrorNumber(error);
    }
    return result;
}

// ---- Loading

namespace {
// The attribute's bytes: nearly always the standard size, sometimes more.
struct Record {
    static constexpr size_t kUsualSize = 1024;
    static constexpr size_t kMostSize = 65536; // the kernel has no larger ones
    uint8_t usual[kUsualSize];
    std::unique_ptr<uint8_t[]> large;
    size_t size = 0;

    std::span<uint8_t> bytes() { return {large ? large.get() : usual, size}; }
    std::optional<Header> header() { return ParseHeader(bytes(), size); }
};

enum class Found { kRecord, kNone, kNoAttributes, kDenied, kFailure };
} // namespace

static Found Explain() {
    if (HasNoAttributes()) return Found::kNoAttributes;
    switch (LastErrorNumber()) {
    case ENODATA:
        return Found::kNone;
    case EACCES:
    case EPERM:
        return Found::kDenied;
    default:
        return Found::kFailure;
    }
}

// Reads the attribute through `get`, which takes a buffer and its size. Asking for the size alone is cheaper
// where there is no attribute, and costs a second call where there is one; objects asked about in a row are
// mostly alike.
template <typename Get>
static Found ReadRecord(Get get, Record& record) {
    static std::atomic<bool> lastHadOne = true;
    const bool expectsOne = lastHadOne.load(std::memory_order_relaxed);
    ssize_t size = expectsOne ? 0 : get(nullptr, 0);
    if (size >= 0) size = get(record.usual, Record::kUsualSize);
    if (size < 0 && LastErrorNumber() == ERANGE) {
        record.large.reset(new (std::nothrow) uint8_t[Record::kMostSize]);
        if (!record.large) {
            SetLastErrorNumber(ENOMEM);
            return Found::kFailure;
        }
        size = get(record.large.get(), Record::kMostSize);
    }
    if ((size >= 0) != expectsOne) lastHadOne.store(!expectsOne, std::memory_order_relaxed);
    if (size < 0) return Explain();
    record.size = static_cast<size_t>(size);
    return Found::kRecord;
}

// Reads the attribute by the object's name, with the right to do so lent where the mode denies it.
static Found ReadRecordAt(const Place& place, Record& record) {
    Found found = ReadRecord(
        [&place](void* bytes, size_t size) {
            return GetAttributeAt(place.folder.descriptor(), place.name, kMetadataAttribute, bytes, size);
        },
        record);
    if (found != Found::kDenied) return found;
    const OSErr result = WithRightsLent(place, S_IRUSR, [&](const HeldObject& object) {
        found = ReadRecord(
            [&](void* bytes, size_t size) { return object.GetAttribute(kMetadataAttribute, bytes, size); },
            record);
        return found == Found::kDenied ? afpAccessDenied : noErr;
    });
    return result == noErr || found == Found::kDenied ? found : Found::kFailure;
}

// The same for the object that is open as `file`; `place.facts` may tell less than is known of it by now.
static Found ReadRecordOf(int file, const Place& place, Record& record) {
    Place exact = place;
    if (FactsAt(file, "", AT_EMPTY_PATH, exact.facts) < 0) return Found::kFailure;
    return ReadRecordAt(exact, record);
}

// Reads the attribute through a descriptor of the object's data.
static Found ReadRecordThrough(int file, const Place& place, Record& record) {
    const Found found = ReadRecord(
        [file](void* bytes, size_t size) {
            return Retry([&] { return fgetxattr(file, kMetadataAttribute, bytes, size); });
        },
        record);
    return found == Found::kDenied ? ReadRecordOf(file, place, record) : found;
}

static bool CanHaveFacts(const Place& place) {
    return S_ISREG(place.facts.stx_mode) || S_ISDIR(place.facts.stx_mode);
}

// The facts in the sidecar; the defaults where there is none or it is broken.
static OSErr LoadFromSidecar(const Place& place, Facts& facts) {
    Sidecar sidecar;
    OSErr result = sidecar.Open(place, false);
    if (result == noErr) result = sidecar.GetFacts(facts);
    return result == fnfErr || sidecar.IsBroken() || result == afpAccessDenied ? noErr : result;
}

static OSErr LoadFinderInfoFromSidecar(const Place& place, Facts& facts) {
    Facts all;
    const OSErr result = LoadFromSidecar(place, all);
    std::copy(std::begin(all.finderInfo), std::end(all.finderInfo), facts.finderInfo);
    return result;
}

static OSErr Interpret(Found found, Record& record, const Place& place, Look look, Facts& facts) {
    switch (found) {
    case Found::kRecord:
        if (const auto header = record.header()) facts = ReadFacts(*header, record.bytes());
        return noErr;
    case Found::kNone:
        return look == Look::kFinderInfoInSidecar ? LoadFinderInfoFromSidecar(place, facts) : noErr;
    case Found::kNoAttributes:
        return LoadFromSidecar(place, facts);
    case Found::kDenied:
        return noErr;
    default:
        return LastError();
    }
}

OSErr LoadFacts(const Place& place, Look look, Facts& facts, int file) {
    facts = {};
    if (!CanHaveFacts(place)) return noErr;
    Record record;
    Found found = Found::kNone;
    if (!IsKnownBare(place.facts)) {
        found = file < 0 ? ReadRecordAt(place, record) : ReadRecordThrough(file, place, record);
        if (found == Found::kNone)
            RememberBare(place.facts, TraitsOf(place.folderID, place.name, place.facts).fineTimes);
    }
    return Interpret(found, record, place, look, facts);
}

OSErr CheckUnlocked(const Place& place, int file, OSErr refusal) {
    Record record;
    Facts facts;
    const Found found = ReadRecordThrough(file, place, record);
    const OSErr result = Interpret(found, record, place, Look::kAttributeOnly, facts);
    return result == noErr && facts.locked ? refusal : result;
}

// ---- Storing

// Whether Finder information in a sidecar would show if the attribute went.
static bool HasFinderInfoInSidecar(const Place& place) {
    Facts facts;
    return LoadFinderInfoFromSidecar(place, facts) != noErr || facts != Facts{};
}

static int StoreInAttribute(const Place& place, const HeldObject& object, Record& record,
                            const Facts& facts) {
    const auto header = record.header();
    std::span<uint8_t> bytes = record.bytes();
    Attribute fresh;
    if (!header || !WriteFacts(*header, bytes, facts)) {
        MakeAttribute(fresh, facts);
        if (header) CopyComment(*header, bytes, fresh);
        bytes = fresh;
    }
    if (HoldsNothing(*ParseHeader(bytes, bytes.size()), bytes) && !HasFinderInfoInSidecar(place)) {
        return object.RemoveAttribute(kMetadataAttribute);
    }
    return object.SetAttribute(kMetadataAttribute, bytes.data(), bytes.size());
}

// A sidecar that cannot be, because its name is too long or somebody else's, keeps nothing.
static OSErr StoreInSidecar(const Place& place, const Facts& facts) {
    Sidecar sidecar;
    OSErr result = sidecar.OpenOrMake(place);
    if (result == dupFNErr || result == bdNamErr) return noErr;
    return result == noErr ? sidecar.SetFacts(facts) : result;
}

namespace {
// What to store of an object that is held.
struct Change {
    const Place& place;
    const HeldObject& object;
    FSCatalogInfoBitmap whichInfo;
    const FSCatalogInfo& info;
};
} // namespace

// A creation date that the object was born with needs no keeping.
static void ApplyDates(const Change& change, Facts& facts) {
    const struct statx& object = change.object.facts();
    if (change.whichInfo & kFSCatInfoCreateDate) {
        const UTCDateTime& date = change.info.createDate;
        const bool isBirth =
            (object.stx_mask & STATX_BTIME) && SameDate(date, DateFromTimestamp(object.stx_btime));
        facts.createDate = isBirth ? kNoDate : MetadataDateFromDate(date).value_or(facts.createDate);
    }
    if (change.whichInfo & kFSCatInfoBackupDate) {
        facts.backupDate = MetadataDateFromDate(change.info.backupDate).value_or(facts.backupDate);
    }
}

static void Apply(const Change& change, Facts& facts) {
    const FSCatalogInfo& info = change.info;
    if (change.whichInfo & kFSCatInfoNodeFlags) facts.locked = info.nodeFlags & kFSNodeLockedMask;
    if (change.whichInfo & kFSCatInfoFinderInfo) {
        std::copy(std::begin(info.finderInfo), std::end(info.finderInfo), facts.finderInfo);
    }
    if (change.whichInfo & kFSCatInfoFinderXInfo) {
        std::copy(std::begin(info.extFinderInfo), std::end(info.extFinderInfo),
                  facts.finderInfo + sizeof(info.finderInfo));
    }
    ApplyDates(change, facts);
}

// One attempt; -5000 when the mode denies it.
static OSErr TryToStore(const Change& change) {
    const HeldObject& object = change.object;
    Record record;
    const Found found = ReadRecord(
        [&object](void* bytes, size_t size) { return object.GetAttribute(kMetadataAttribute, bytes, size); },
        record);
    if (found == Found::kDenied) return afpAccessDenied;
    Facts before;
    const OSErr result = Interpret(found, record, change.place, Look::kFinderInfoInSidecar, before);
    if (result != noErr) return result;
    Facts after = before;
    Apply(change, after);
    if (after == before) return noErr;
    if (found == Found::kNoAttributes) return StoreInSidecar(change.place, after);
    return StoreInAttribute(change.place, object, record, after) < 0 ? LastError() : noErr;
}

OSErr StoreFacts(const Place& place, const HeldObject& object, FSCatalogInfoBitmap whichInfo,
                 const FSCatalogInfo& info) {
    if (!CanHaveFacts(place)) return noErr;
    const Change change = {place, object, whichInfo, info};
    const OSErr result = TryToStore(change);
    if (result != afpAccessDenied) return result;
    return WithRightsLent(place, kOwnRights, [&](const HeldObject& own) {
        return TryToStore({place, own, whichInfo, info});
    });
}

OSErr StoreKnownFacts(const Place& place, const HeldObject& object, FSCatalogInfoBitmap whichInfo,
                      const FSCatalogInfo& info, Facts& known) {
    if (!CanHaveFacts(place)) return noErr;
    Facts facts = known;
    Apply({place, object, whichInfo, info}, facts);
    if (facts == known) return noErr;
    Attribute fresh;
    MakeAttribute(fresh, facts);
    if (known == Facts{} && S_ISREG(place.facts.stx_mode)) KeepMetadataShared(place, fresh);
    OSErr result = noErr;
    // Defaults are to leave nothing behind, and there may be no attributes here, or none yet that this user may
    // set.
    if (facts == Facts{} || object.SetAttribute(kMetadataAttribute, fresh, sizeof(fresh)) < 0)
        result = StoreFacts(place, object, whichInfo, info);
    if (result == noErr) known = facts;
    return result;
}
