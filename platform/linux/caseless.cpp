// Caseless names, on ICU's full case folding and canonical decomposition.
// The platform keeps its catalog sorted by caseless name; here a folder is read and every name folded, once
// for as long as it stays unchanged. A folder's change time tells that only when it is clearly older than the
// reading: within one tick of the file system's clock a change leaves no trace. Where that clock may be a
// server's, which may run behind, the time must have stood for as long by this system's own. Sections:
// folding, what is remembered, finding.
#include "platform/linux/caseless.h"

#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/current_task.h"
#include "platform/linux/entries.h"
#include "platform/linux/folders.h"
#include "platform/linux/names.h"
#include "platform/linux/reference_state.h"
#include "platform/linux/settled.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

// ---- Folding ----

static constinit ChildSafeMutex normalizerLock;
static constinit std::atomic<const UNormalizer2*> knownNormalizer = nullptr;

// ICU makes it once, behind a lock of its own; behind ours, so that no fork comes in between.
static const UNormalizer2* Normalizer(UErrorCode& status) {
    const UNormalizer2* known = knownNormalizer.load(std::memory_order_acquire);
    if (known) return known;
    const HeldLock guard(normalizerLock);
    known = unorm2_getNFDInstance(&status);
    knownNormalizer.store(known, std::memory_order_release);
    return known;
}

static std::u16string Decompose(const std::u16string& text) {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2* normalizer = Normalizer(status);
    std::u16string result(text.size() * 4 + 8, u'\0'); // no unit grows by more
    int32_t length = unorm2_normalize(normalizer, text.data(), static_cast<int32_t>(text.size()),
                                      result.data(), static_cast<int32_t>(result.size()), &status);
    if (U_FAILURE(status)) return text;
    result.resize(static_cast<size_t>(length));
    return result;
}

static std::u16string FoldCase(const std::u16string& text) {
    UErrorCode status = U_ZERO_ERROR;
    std::u16string result(text.size() * 3 + 8, u'\0'); // "ΐ" becomes three
    int32_t length = u_strFoldCase(result.data(), static_cast<int32_t>(result.size()), text.data(),
                                   static_cast<int32_t>(text.size()), U_FOLD_CASE_DEFAULT, &status);
    if (U_FAILURE(status)) return text;
    result.resize(static_cast<size_t>(length));
    return result;
}

std::u16string FoldName(const char* name) {
    size_t length = std::strlen(name);
    std::u16string units(length, u'\0');
    bool ascii = true;
    for (size_t i = 0; i < length; ++i) {
        auto byte = static_cast<unsigned char>(name[i]);
        ascii = ascii && byte < 0x80;
        units[i] = byte >= 'A' && byte <= 'Z' ? byte + 0x20 : byte;
    }
    if (ascii) return units;
    UniChar text[kMaxNameBytes];
    size_t count = std::min(UnitsFromBytes(name, length, text, kMaxNameBytes), kMaxNameBytes);
    return Decompose(FoldCase(Decompose(std::u16string(text, text + count))));
}

uint32_t HashFolded(const char16_t* folded, size_t length) {
    uint64_t hash = 0xCBF29CE484222325u;
    for (size_t i = 0; i < length; ++i) hash = (hash ^ folded[i]) * 0x100000001B3u;
    return static_cast<uint32_t>(hash ^ hash >> 32);
}

// ---- What is remembered ----

size_t CaselessNames::Folder::bytes() const {
    size_t total = sizeof(Folder) + hashes.capacity() * sizeof(uint32_t);
    for (const Resolved& entry : resolved) total += entry.folded.capacity() * 2 + entry.actual.capacity();
    return total;
}

std::list<CaselessNames::Folder>::iterator CaselessNames::Lookup(FolderID folder) {
    auto found = std::find_if(folders_.begin(), folders_.end(),
                              [&](const Folder& entry) { return entry.id == folder; });
    if (found != folders_.end()) folders_.splice(folders_.begin(), folders_, found);
    return found;
}

void CaselessNames::Forget(std::list<Folder>::iterator folder) {
    bytes_ -= folder->bytes();
    folders_.erase(folder);
}

CaselessNames::Answer CaselessNames::Find(FolderID folder, const ChangeTime& change,
                                          const std::u16string& folded, std::string& actual) {
    auto entry = Lookup(folder);
    if (entry == folders_.end()) return Answer::kUnknown;
    if (!(entry->change == change)) {
        Forget(entry);
        return Answer::kUnknown;
    }
    uint32_t hash = HashFolded(folded.data(), folded.size());
    if (!std::binary_search(entry->hashes.begin(), entry->hashes.end(), hash)) return Answer::kMissing;
    for (const Resolved& resolved : entry->resolved) {
        if (resolved.folded != folded) continue;
        actual = resolved.actual;
        return actual.empty() ? Answer::kMissing : Answer::kFound;
    }
    return Answer::kUnknown;
}

void CaselessNames::Remember(FolderID folder, const ChangeTime& change, std::vector<uint32_t> hashes) {
    auto present = Lookup(folder);
    if (present != folders_.end()) Forget(present);
    std::sort(hashes.begin(), hashes.end());
    hashes.shrink_to_fit();
    if (sizeof(Folder) + hashes.capacity() * sizeof(uint32_t) > kCapacity) return;
    folders_.push_front({folder, change, std::move(hashes), {}, 0});
    bytes_ += folders_.front().bytes();
    while (bytes_ > kCapacity) Forget(std::prev(folders_.end()));
}

void CaselessNames::RememberAnswer(FolderID folder, const std::u16string& folded, const std::string& actual) {
    auto entry = Lookup(folder);
    if (entry == folders_.end()) return;
    bytes_ -= entry->bytes();
    entry->resolved[entry->nextResolved] = {folded, actual};
    entry->nextResolved = (entry->nextResolved + 1) % entry->resolved.size();
    bytes_ += entry->bytes();
    while (bytes_ > kCapacity) Forget(std::prev(folders_.end()));
}

bool CaselessNames::HasRested(FolderID folder, const ChangeTime& change, uint64_t now) {
    constexpr uint64_t kLongestTick = 2'500'000'000; // FAT counts in steps of two seconds
    Sighting& sighting = sightings_[folder % sightings_.size()];
    if (sighting.id != folder || !(sighting.change == change)) sighting = {folder, change, now};
    return now - sighting.since > kLongestTick;
}

void CaselessNames::Clear() {
    folders_.clear();
    sightings_ = {};
    bytes_ = 0;
}

// ---- Finding ----

namespace {

ChangeTime ChangeTimeOf(const struct statx& facts) {
    return {facts.stx_ctime.tv_sec, facts.stx_ctime.tv_nsec};
}

struct Reading {
    std::vector<uint32_t> hashes;
    std::string actual;
    unsigned matches = 0;
};

OSErr ReadFolder(const FolderHandle& handle, const std::u16string& folded, Reading& reading) {
    uint32_t sought = HashFolded(folded.data(), folded.size());
    return VisitEntries(handle, [&](const DirectoryEntry& entry) {
        std::u16string name = FoldName(entry.name);
        uint32_t hash = HashFolded(name.data(), name.size());
        reading.hashes.push_back(hash);
        if (hash != sought || name != folded) return false;
        reading.actual = entry.name;
        ++reading.matches;
        return false;
    });
}

OSErr FactsOfFolder(const FolderHandle& handle, struct statx& facts) {
    return FactsAt(handle.descriptor(), "", AT_EMPTY_PATH, facts) < 0 ? LastError() : noErr;
}

OSErr Take(const std::string& found, char (&actual)[256]) {
    if (found.empty() || found.size() > kMaxNameBytes) return fnfErr;
    std::memcpy(actual, found.c_str(), found.size() + 1);
    return noErr;
}

} // namespace

OSErr FindCaseless(FolderID folder, const char* name, char (&actual)[256]) {
    FolderHandle handle;
    struct statx before;
    OSErr result = OpenFolder(folder, handle);
    if (result == noErr) result = FactsOfFolder(handle, before);
    if (result != noErr) return result;
    std::u16string folded = FoldName(name);
    ChangeTime change = ChangeTimeOf(before);
    std::string found;
    auto answer = StateLock()->caseless.Find(folder, change, folded, found);
    if (answer != CaselessNames::Answer::kUnknown) return Take(found, actual);

    bool settled = TraitsOf(folder, ".", before).fineTimes
                       ? IsSettled(before.stx_ctime, true)
                       : StateLock()->caseless.HasRested(folder, change, MonotonicNow());
    Reading reading;
    result = ReadFolder(handle, folded, reading);
    if (result != noErr) return MissingBecause(result);
    if (reading.matches != 1) reading.actual.clear();
    struct statx after;
    if (settled && FactsOfFolder(handle, after) == noErr && ChangeTimeOf(after) == change) {
        StateLock state;
        state->caseless.Remember(folder, change, std::move(reading.hashes));
        if (reading.matches > 0) state->caseless.RememberAnswer(folder, folded, reading.actual);
    }
    return Take(reading.actual, actual);
}
