// Inside the provider: the AppleDouble format, in which Macs and their file servers keep what a plain file
// has no place for. A header names entries; each is a run of bytes somewhere behind it. All numbers are
// big-endian.
#pragma once

#include "platform/types.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace appledouble {

constexpr uint32_t kMagic = 0x00051607;
constexpr size_t kMagicSize = 4;

constexpr uint32_t kResourceFork = 2;
constexpr uint32_t kComment = 4;
constexpr uint32_t kFileDates = 8;
constexpr uint32_t kFinderInfo = 9;
constexpr uint32_t kAFPInfo = 14;

constexpr size_t kFinderInfoSize = 32;
constexpr int32_t kNoDate = INT32_MIN; // the value that stands for "never"

constexpr unsigned kMostEntries = 64;
constexpr size_t HeaderSize(unsigned entries) {
    return 26 + size_t{entries} * 12;
}
constexpr size_t kMostHeaderBytes = HeaderSize(kMostEntries);

struct Entry {
    uint32_t id;
    uint32_t offset;
    uint32_t length;
    uint32_t where; // of its description in the header
};

struct Header {
    unsigned count = 0;
    Entry entries[kMostEntries];

    const Entry* Find(uint32_t id) const;
    // The first byte that no entry reaches.
    uint64_t End() const;
};

// Reads the header at the start of `bytes`; `size` is that of everything, of which `bytes` must be the first
// kMostHeaderBytes or all. Nothing when it is not AppleDouble or any entry overlaps another or leaves the
// size.
std::optional<Header> ParseHeader(std::span<const uint8_t> bytes, uint64_t size);

// What this library keeps of an object in this format.
struct Facts {
    uint8_t finderInfo[kFinderInfoSize] = {};
    int32_t createDate = kNoDate; // seconds from the beginning of 2000
    int32_t backupDate = kNoDate;
    bool locked = false;

    bool operator==(const Facts&) const = default;
};

// Takes the facts out of a record; entries that are missing or too short leave the defaults.
Facts ReadFacts(const Header& header, std::span<const uint8_t> bytes);

// Puts the facts into their places in a record and leaves all else. Whether each that is not a default had
// one.
bool WriteFacts(const Header& header, std::span<uint8_t> bytes, const Facts& facts);

// The attribute: 402 bytes and eight entries, as file servers expect them.
constexpr size_t kAttributeSize = 402;
using Attribute = uint8_t[kAttributeSize];
void MakeAttribute(Attribute& attribute);
void MakeAttribute(Attribute& attribute, const Facts& facts);

// Takes the comment, the one thing in a foreign record that the attribute also has a place for, along.
void CopyComment(const Header& from, std::span<const uint8_t> bytes, Attribute& attribute);

// Whether a record holds nothing that this library does not know as a default.
bool HoldsNothing(const Header& header, std::span<const uint8_t> bytes);

// The front of a sidecar. The plain one has Finder information and an empty resource fork; the full one, for
// volumes where there is no attribute, has places for all facts and room for a resource fork's entry.
constexpr size_t kPlainFrontSize = 82;
constexpr size_t kFullFrontSize = 126;
constexpr size_t kMostFrontSize = kFullFrontSize;
size_t MakeFront(bool full, uint8_t (&front)[kMostFrontSize]);

// Enters an empty resource fork that begins at `end`. Whether the header had room for it; `bytes` is
// otherwise as it was.
bool AddResourceFork(const Header& header, std::span<uint8_t> bytes, uint64_t end);

uint32_t Load32(const uint8_t* bytes);
void Store32(uint8_t* bytes, uint32_t value);

} // namespace appledouble
