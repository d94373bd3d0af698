// Shows and changes what is stored with a file or folder, through the platform's operations: the other end of the
// tests that look at the same objects through a file server.
//
// usage: stored_facts show PATH                   a line "key value" for each fact
//        stored_facts set PATH KEY=VALUE ...      finder=64 HEX DIGITS  created=SECONDS  backup=SECONDS  locked=0|1
//        stored_facts read-resource PATH          the resource fork to the output
//        stored_facts write-resource PATH         the resource fork from the input
//
// Seconds are counted from 1970. Exits with 1 and the operation's result code when one fails.
#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/references.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr FSCatalogInfoBitmap kStored = kFSCatInfoNodeFlags | kFSCatInfoCreateDate | kFSCatInfoBackupDate |
                                        kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo;
constexpr int64_t k1904To1970 = 2082844800;
constexpr size_t kHalf = sizeof(FSCatalogInfo::finderInfo);

void Check(OSStatus result, const char* operation) {
    if (result == 0) return;
    std::fprintf(stderr, "%s: %d\n", operation, static_cast<int>(result));
    std::exit(1);
}

int64_t SecondsFrom(const UTCDateTime& date) {
    return (static_cast<int64_t>(date.highSeconds) << 32 | date.lowSeconds) - k1904To1970;
}

UTCDateTime DateFrom(const char* seconds) {
    const int64_t since1904 = std::strtoll(seconds, nullptr, 10) + k1904To1970;
    return {static_cast<uint16_t>(since1904 >> 32), static_cast<uint32_t>(since1904), 0};
}

void PrintHex(const uint8_t (&bytes)[kHalf]) {
    for (const uint8_t byte : bytes) std::printf("%02x", byte);
}

void Show(const FSRef& ref) {
    FSCatalogInfo info = {};
    Check(FSGetCatalogInfo(&ref, kStored, &info, nullptr, nullptr, nullptr), "FSGetCatalogInfo");
    std::printf("finder ");
    PrintHex(info.finderInfo);
    PrintHex(info.extFinderInfo);
    std::printf("\ncreated %lld\n", static_cast<long long>(SecondsFrom(info.createDate)));
    std::printf("backup %lld\n", static_cast<long long>(SecondsFrom(info.backupDate)));
    std::printf("locked %d\n", info.nodeFlags & kFSNodeLockedMask);
}

void ReadHex(const char* digits, uint8_t (&bytes)[kHalf]) {
    for (size_t at = 0; at < kHalf; ++at) {
        bytes[at] = static_cast<uint8_t>(std::stoul(std::string(digits + 2 * at, 2), nullptr, 16));
    }
}

// Puts one "key=value" into the record; which fact it is.
FSCatalogInfoBitmap Take(const char* word, FSCatalogInfo& info) {
    const char* value = std::strchr(word, '=') + 1;
    const std::string key(word, value - 1);
    if (key == "created") info.createDate = DateFrom(value);
    if (key == "backup") info.backupDate = DateFrom(value);
    if (key == "locked") info.nodeFlags = *value == '1' ? kFSNodeLockedMask : 0;
    if (key == "created") return kFSCatInfoCreateDate;
    if (key == "backup") return kFSCatInfoBackupDate;
    if (key == "locked") return kFSCatInfoNodeFlags;
    ReadHex(value, info.finderInfo);
    ReadHex(value + 2 * kHalf, info.extFinderInfo);
    return kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo;
}

void Set(const FSRef& ref, char** words) {
    FSCatalogInfo info = {};
    FSCatalogInfoBitmap which = 0;
    for (; *words; ++words) which |= Take(*words, info);
    Check(FSSetCatalogInfo(&ref, which, &info), "FSSetCatalogInfo");
}

FSForkRefNum OpenResource(const FSRef& ref, int8_t permission) {
    HFSUniStr255 name;
    Check(FSGetResourceForkName(&name), "FSGetResourceForkName");
    const OSErr made = permission == fsRdPerm ? noErr : FSCreateFork(&ref, name.length, name.unicode);
    if (made != errFSForkExists) Check(made, "FSCreateFork");
    FSForkRefNum fork = 0;
    Check(FSOpenFork(&ref, name.length, name.unicode, permission, &fork), "FSOpenFork");
    return fork;
}

void ReadResource(const FSRef& ref) {
    const FSForkRefNum fork = OpenResource(ref, fsRdPerm);
    int64_t size = 0;
    Check(FSGetForkSize(fork, &size), "FSGetForkSize");
    std::vector<char> bytes(static_cast<size_t>(size));
    ByteCount count = 0;
    Check(FSReadFork(fork, fsFromStart, 0, bytes.size(), bytes.data(), &count), "FSReadFork");
    Check(FSCloseFork(fork), "FSCloseFork");
    if (count) std::fwrite(bytes.data(), 1, count, stdout);
}

void WriteResource(const FSRef& ref) {
    std::vector<char> bytes;
    for (int byte; (byte = std::getchar()) != EOF;) bytes.push_back(static_cast<char>(byte));
    const FSForkRefNum fork = OpenResource(ref, fsRdWrPerm);
    ByteCount count = 0;
    Check(FSWriteFork(fork, fsFromStart, 0, bytes.size(), bytes.data(), &count), "FSWriteFork");
    Check(FSSetForkSize(fork, fsFromStart, static_cast<int64_t>(bytes.size())), "FSSetForkSize");
    Check(FSCloseFork(fork), "FSCloseFork");
}

} // namespace

int main(int count, char** words) {
    if (count < 3) return 2;
    const std::string command = words[1];
    FSRef ref;
    Check(FSPathMakeRef(reinterpret_cast<const uint8_t*>(words[2]), &ref, nullptr), "FSPathMakeRef");
    if (command == "show") Show(ref);
    if (command == "set") Set(ref, words + 3);
    if (command == "read-resource") ReadResource(ref);
    if (command == "write-resource") WriteResource(ref);
}
