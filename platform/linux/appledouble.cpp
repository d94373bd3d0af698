// The AppleDouble codec: bytes in, bytes out, no system call. Whatever the bytes are, nothing outside them is
// touched.
//
// A record that comes from somewhere else is never laid out anew: facts are written into the places that it
// has, so that entries and bits which mean nothing here stay as they were.
//
// Sections: numbers, header, facts, the attribute, the sidecar's front.
#include "platform/linux/appledouble.h"

#include <algorithm>
#include <cstring>

namespace appledouble {

// ---- Numbers

static uint16_t Load16(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

static void Store16(uint8_t* bytes, uint16_t value) {
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

uint32_t Load32(const uint8_t* bytes) {
    return static_cast<uint32_t>(Load16(bytes)) << 16 | Load16(bytes + 2);
}

void Store32(uint8_t* bytes, uint32_t value) {
    Store16(bytes, static_cast<uint16_t>(value >> 16));
    Store16(bytes + 2, static_cast<uint16_t>(value));
}

// ---- Header

constexpr uint32_t kVersion1 = 0x00010000;
constexpr uint32_t kVersion2 = 0x00020000;
constexpr size_t kVersionAt = 4;
constexpr size_t kFillerAt = 8;
constexpr size_t kCountAt = 24;
constexpr size_t kEntriesAt = HeaderSize(0);
constexpr size_t kEntrySize = HeaderSize(1) - HeaderSize(0);

const Entry* Header::Find(uint32_t id) const {
    const Entry* end = entries + count;
    const Entry* found = std::find_if(entries, end, [id](const Entry& entry) { return entry.id == id; });
    return found == end ? nullptr : found;
}

uint64_t Header::End() const {
    uint64_t end = HeaderSize(count);
    for (const Entry& entry : std::span(entries, count)) {
        if (entry.length) end = std::max<uint64_t>(end, uint64_t{entry.offset} + entry.length);
    }
    return end;
}

// Whether two entries share bytes or have the same meaning; either would make a write to one destroy the
// other.
static bool Clash(const Entry& a, const Entry& b) {
    if (a.id == b.id) return true;
    if (!a.length || !b.length) return false;
    return a.offset < uint64_t{b.offset} + b.length && b.offset < uint64_t{a.offset} + a.length;
}

static bool IsSound(const Header& header, const Entry& entry, uint64_t size) {
    const size_t headerEnd = HeaderSize(header.count);
    if (entry.length && (entry.offset < headerEnd || uint64_t{entry.offset} + entry.length > size))
        return false;
    return std::none_of(header.entries, &entry, [&entry](const Entry& other) { return Clash(entry, other); });
}

std::optional<Header> ParseHeader(std::span<const uint8_t> bytes, uint64_t size) {
    if (bytes.size() < kEntriesAt || Load32(bytes.data()) != kMagic) return std::nullopt;
    const uint32_t version = Load32(&bytes[kVersionAt]);
    if (version != kVersion1 && version != kVersion2) return std::nullopt;
    Header header;
    header.count = Load16(&bytes[kCountAt]);
    if (header.count > kMostEntries || HeaderSize(header.count) > bytes.size()) return std::nullopt;
    for (unsigned i = 0; i < header.count; ++i) {
        const uint32_t where = static_cast<uint32_t>(kEntriesAt + i * kEntrySize);
        header.entries[i] = {Load32(&bytes[where]), Load32(&bytes[where + 4]), Load32(&bytes[where + 8]),
                             where};
        if (!IsSound(header, header.entries[i], size)) return std::nullopt;
    }
    return header;
}

// ---- Facts

constexpr uint32_t kDatesSize = 16;
constexpr size_t kCreateDateAt = 0;
constexpr size_t kBackupDateAt = 8;
constexpr uint32_t kAFPInfoSize = 4;
constexpr size_t kAFPAttributesAt = 2;
constexpr uint16_t kWriteInhibited = 0x0020;
constexpr uint16_t kRenameInhibited = 0x0080;
constexpr uint16_t kDeleteInhibited = 0x0100;
// What a Mac's "locked" box sets and clears over the network.
constexpr uint16_t kLockBits = kWriteInhibited | kRenameInhibited | kDeleteInhibited;

// The bytes of an entry when it has at least `size` of them and they are among those in hand, else null.
template <typename Byte>
static Byte* Field(const Header& header, std::span<Byte> bytes, uint32_t id, uint32_t size) {
    const Entry* entry = header.Find(id);
    if (!entry || entry->length < size || uint64_t{entry->offset} + size > bytes.size()) return nullptr;
    return &bytes[entry->offset];
}

Facts ReadFacts(const Header& header, std::span<const uint8_t> bytes) {
    Facts facts;
    if (auto* finder = Field(header, bytes, kFinderInfo, kFinderInfoSize)) {
        std::memcpy(facts.finderInfo, finder, kFinderInfoSize);
    }
    if (auto* dates = Field(header, bytes, kFileDates, kDatesSize)) {
        facts.createDate = static_cast<int32_t>(Load32(dates + kCreateDateAt));
        facts.backupDate = static_cast<int32_t>(Load32(dates + kBackupDateAt));
    }
    if (auto* info = Field(header, bytes, kAFPInfo, kAFPInfoSize)) {
        facts.locked = Load16(info + kAFPAttributesAt) & kWriteInhibited;
    }
    return facts;
}

static void WriteLock(uint8_t* attributes, bool locked) {
    const uint16_t old = Load16(attributes);
    if (locked == ((old & kWriteInhibited) != 0)) return;
    Store16(attributes, static_cast<uint16_t>(locked ? old | kLockBits : old & ~kLockBits));
}

bool WriteFacts(const Header& header, std::span<uint8_t> bytes, const Facts& facts) {
    if (auto* finder = Field(header, bytes, kFinderInfo, kFinderInfoSize)) {
        std::memcpy(finder, facts.finderInfo, kFinderInfoSize);
    }
    if (auto* dates = Field(header, bytes, kFileDates, kDatesSize)) {
        Store32(dates + kCreateDateAt, static_cast<uint32_t>(facts.createDate));
        Store32(dates + kBackupDateAt, static_cast<uint32_t>(facts.backupDate));
    }
    if (auto* info = Field(header, bytes, kAFPInfo, kAFPInfoSize)) {
        WriteLock(info + kAFPAttributesAt, facts.locked);
    }
    return ReadFacts(header, bytes) == facts;
}

static bool IsZero(std::span<const uint8_t> bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
}

static bool HasNoDate(std::span<const uint8_t> dates) {
    for (size_t at = 0; at + 4 <= dates.size(); at += 4) {
        if (static_cast<int32_t>(Load32(&dates[at])) != kNoDate) return false;
    }
    return true;
}

bool HoldsNothing(const Header& header, std::span<const uint8_t> bytes) {
    return std::all_of(header.entries, header.entries + header.count, [bytes](const Entry& entry) {
        if (!entry.length) return true;
        if (uint64_t{entry.offset} + entry.length > bytes.size()) return false;
        const auto content = bytes.subspan(entry.offset, entry.length);
        if (entry.id == kFileDates) return HasNoDate(content);
        return (entry.id == kFinderInfo || entry.id == kAFPInfo) && IsZero(content);
    });
}

// ---- The attribute

struct Place {
    uint32_t id, offset, length;
};

constexpr uint32_t kCommentRoom = 200;
constexpr Place kAttributePlaces[] = {
    {kFinderInfo, 122, kFinderInfoSize},
    {kComment, 154, 0},
    {kFileDates, 354, kDatesSize},
    {kAFPInfo, 370, kAFPInfoSize},
    {0x80444556, 374, 0}, // device, inode, time stamp and number that servers note there
    {0x80494E4F, 382, 0},
    {0x8053594E, 390, 0},
    {0x8053567E, 398, 0},
};
constexpr char kFiller[] = "Netatalk        ";

static void WriteHeader(uint8_t* bytes, std::span<const Place> places) {
    Store32(bytes, kMagic);
    Store32(bytes + kVersionAt, kVersion2);
    std::memcpy(bytes + kFillerAt, kFiller, kCountAt - kFillerAt);
    Store16(bytes + kCountAt, static_cast<uint16_t>(places.size()));
    uint8_t* entry = bytes + kEntriesAt;
    for (const Place& place : places) {
        Store32(entry, place.id);
        Store32(entry + 4, place.offset);
        Store32(entry + 8, place.length);
        if (place.id == kFileDates) {
            for (uint32_t at = 0; at < kDatesSize; at += 4) Store32(bytes + place.offset + at, 0x80000000);
        }
        entry += kEntrySize;
    }
}

void MakeAttribute(Attribute& attribute) {
    std::memset(attribute, 0, sizeof(attribute));
    WriteHeader(attribute, kAttributePlaces);
}

static constexpr Header HeaderOfAttribute() {
    Header header{};
    for (const Place& place : kAttributePlaces)
        header.entries[header.count++] = {place.id, place.offset, place.length, 0};
    return header;
}

void MakeAttribute(Attribute& attribute, const Facts& facts) {
    static constexpr Header kHeader = HeaderOfAttribute();
    MakeAttribute(attribute);
    WriteFacts(kHeader, attribute, facts);
}

void CopyComment(const Header& from, std::span<const uint8_t> bytes, Attribute& attribute) {
    const Entry* comment = from.Find(kComment);
    if (!comment || !comment->length || comment->length > kCommentRoom) return;
    if (uint64_t{comment->offset} + comment->length > bytes.size()) return;
    const Place& place = kAttributePlaces[1];
    std::memcpy(attribute + place.offset, &bytes[comment->offset], comment->length);
    Store32(attribute + kEntriesAt + kEntrySize + 8, comment->length);
}

// ---- The sidecar's front

constexpr Place kPlainPlaces[] = {
    {kFinderInfo, 50, kFinderInfoSize},
    {kResourceFork, kPlainFrontSize, 0},
};
// The header ends at 62; the room up to 74 is for a resource fork's entry, so that one can be added in place.
constexpr Place kFullPlaces[] = {
    {kFinderInfo, 74, kFinderInfoSize},
    {kFileDates, 106, kDatesSize},
    {kAFPInfo, 122, kAFPInfoSize},
};

size_t MakeFront(bool full, uint8_t (&front)[kMostFrontSize]) {
    std::memset(front, 0, sizeof(front));
    if (full) {
        WriteHeader(front, kFullPlaces);
    } else {
        WriteHeader(front, kPlainPlaces);
    }
    return full ? kFullFrontSize : kPlainFrontSize;
}

bool AddResourceFork(const Header& header, std::span<uint8_t> bytes, uint64_t end) {
    const size_t where = HeaderSize(header.count);
    if (header.count == kMostEntries || where + kEntrySize > bytes.size() || end > UINT32_MAX) return false;
    for (const Entry& entry : std::span(header.entries, header.count)) {
        if (entry.length && entry.offset < where + kEntrySize) return false;
    }
    Store32(&bytes[where], kResourceFork);
    Store32(&bytes[where + 4], static_cast<uint32_t>(end));
    Store32(&bytes[where + 8], 0);
    Store16(&bytes[kCountAt], static_cast<uint16_t>(header.count + 1));
    return true;
}

} // namespace appledouble
