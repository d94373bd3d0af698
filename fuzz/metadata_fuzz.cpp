// Files with metadata attributes and sidecars of all kinds, as another program may have left them: whatever is then
// asked, stored, copied and renamed, the data fork stays what it is, and what was stored is found again.
#include "input.h"

#include "copy/file_copy.h"
#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/linux/attributes.h"
#include "support/files.h"
#include "support/references.h"
#include "support/virtual_paths.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/resource.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

constexpr char kData[] = "the data fork";
constexpr FSCatalogInfoBitmap kFinderInfo = kFSCatInfoFinderInfo | kFSCatInfoFinderXInfo;
constexpr FSCatalogInfoBitmap kDates = kFSCatInfoCreateDate | kFSCatInfoBackupDate;

class Folder {
public:
    // Few descriptors, so that one that is never closed shows.
    Folder() {
        const rlimit few = {100, 100};
        Expect(setrlimit(RLIMIT_NOFILE, &few) == 0);
    }

    std::string Path(const char* name) const { return folder_ / name; }

    void Fill(const std::string& attribute, const std::string& sidecar) const {
        for (const char* name : {"file", "._file", "copy", "._copy", "other", "._other"})
            unlink(Path(name).c_str());
        WriteFile(Path("file"), kData);
        if (!attribute.empty()) StoreAttribute(attribute);
        if (!sidecar.empty()) WriteFile(Path("._file"), sidecar);
    }

private:
    // Volumes in memory have no attributes where the kernel is old.
    void StoreAttribute(const std::string& value) const {
        const int result = setxattr(Path("file").c_str(), kMetadataAttribute, value.data(), value.size(), 0);
        Expect(result == 0 || errno == ENOTSUP);
    }

    TemporaryFolder folder_;
};

FSCatalogInfo InfoOf(const FSRef& ref, FSCatalogInfoBitmap which) {
    FSCatalogInfo info = {};
    Expect(FSGetCatalogInfo(&ref, which, &info, nullptr, nullptr, nullptr) == noErr);
    return info;
}

void AskEverything(const FSRef& ref) {
    FSCatalogInfo info;
    HFSUniStr255 name;
    FSSpec spec;
    FSGetCatalogInfo(&ref, kFSCatInfoGettableInfo, &info, &name, &spec, nullptr);
    CatPositionRec position = {};
    int64_t size;
    uint64_t physicalSize;
    for (int forks = 0; FSIterateForks(&ref, &position, &name, &size, &physicalSize) == noErr; ++forks)
        Expect(forks < 2);
}

void StoreFinderInfo(const FSRef& ref, uint8_t byte) {
    FSCatalogInfo info = {};
    std::fill_n(info.finderInfo, sizeof(info.finderInfo), byte);
    std::fill_n(info.extFinderInfo, sizeof(info.extFinderInfo), static_cast<uint8_t>(byte + 1));
    if (FSSetCatalogInfo(&ref, kFinderInfo, &info) != noErr) return;
    const FSCatalogInfo now = InfoOf(ref, kFinderInfo);
    Expect(memcmp(now.finderInfo, info.finderInfo, sizeof(info.finderInfo)) == 0);
    Expect(memcmp(now.extFinderInfo, info.extFinderInfo, sizeof(info.extFinderInfo)) == 0);
}

// Dates of this century.
void StoreDates(const FSRef& ref, uint8_t byte) {
    FSCatalogInfo info = {};
    info.createDate.lowSeconds = 3500000000 + byte;
    info.backupDate.lowSeconds = 3600000000 + byte;
    if (FSSetCatalogInfo(&ref, kDates, &info) != noErr) return;
    const FSCatalogInfo now = InfoOf(ref, kDates);
    Expect(now.createDate.lowSeconds == info.createDate.lowSeconds);
    Expect(now.backupDate.lowSeconds == info.backupDate.lowSeconds);
}

void Lock(const FSRef& ref) {
    for (const uint16_t flags : {kFSNodeLockedMask, uint16_t{0}}) {
        FSCatalogInfo info = {};
        info.nodeFlags = flags;
        if (FSSetCatalogInfo(&ref, kFSCatInfoNodeFlags, &info) != noErr) continue;
        Expect((InfoOf(ref, kFSCatInfoNodeFlags).nodeFlags & kFSNodeLockedMask) == flags);
    }
}

FSForkRefNum OpenResourceFork(const FSRef& ref) {
    HFSUniStr255 name;
    FSGetResourceForkName(&name);
    FSCreateFork(&ref, name.length, name.unicode);
    FSForkRefNum fork = 0;
    return FSOpenFork(&ref, name.length, name.unicode, fsRdWrPerm, &fork) == noErr ? fork : FSForkRefNum{0};
}

void UseResourceFork(const FSRef& ref, uint8_t where, uint8_t byte) {
    const FSForkRefNum fork = OpenResourceFork(ref);
    if (fork == 0) return;
    int64_t size = 0;
    Expect(FSGetForkSize(fork, &size) == noErr && size >= 0);
    std::array<uint8_t, 100> bytes, read;
    bytes.fill(byte);
    ByteCount count = 0;
    if (FSWriteFork(fork, fsFromStart, where, bytes.size(), bytes.data(), nullptr) == noErr) {
        Expect(FSReadFork(fork, fsFromStart, where, read.size(), read.data(), &count) == noErr &&
               read == bytes);
        int64_t grown = 0;
        Expect(FSGetForkSize(fork, &grown) == noErr &&
               grown == std::max<int64_t>(size, where + static_cast<int64_t>(bytes.size())));
    }
    if (FSSetForkSize(fork, fsFromStart, byte) == noErr)
        Expect(FSGetForkSize(fork, &size) == noErr && size == byte);
    Expect(FSCloseFork(fork) == noErr);
}

std::string ResourceFork(const FSRef& ref) {
    HFSUniStr255 name;
    FSGetResourceForkName(&name);
    FSForkRefNum fork = 0;
    if (FSOpenFork(&ref, name.length, name.unicode, fsRdPerm, &fork) != noErr) return "";
    std::string bytes(1 << 12, 0);
    ByteCount count = 0;
    FSReadFork(fork, fsFromStart, 0, static_cast<ByteCount>(bytes.size()), bytes.data(), &count);
    FSCloseFork(fork);
    return bytes.substr(0, count);
}

void Copy(const Folder& folder, const FSRef& ref) {
    const std::u16string from = Wide(folder.Path("file")), to = Wide(folder.Path("copy"));
    if (!TavCopyFile(from.c_str(), to.c_str(), 0)) return;
    Expect(ReadFile(folder.Path("copy")) == kData);
    Expect(ResourceFork(Reference(folder.Path("copy"))) == ResourceFork(ref));
}

// To another name and back.
void Rename(const Folder& folder) {
    const Ref file = MakeRef(Wide(folder.Path("file")));
    if (!TavFileRenameExt(file.get(), u"other", nullptr)) return;
    Expect(ReadFile(folder.Path("other")) == kData);
    const Ref other = MakeRef(Wide(folder.Path("other")));
    Expect(TavFileRenameExt(other.get(), u"file", nullptr));
}

void Step(Input& input, const Folder& folder) {
    const FSRef ref = Reference(folder.Path("file"));
    switch (input.Byte() % 7) {
    case 0:
        return AskEverything(ref);
    case 1:
        return StoreFinderInfo(ref, input.Byte());
    case 2:
        return StoreDates(ref, input.Byte());
    case 3:
        return Lock(ref);
    case 4: {
        const uint8_t where = input.Byte();
        return UseResourceFork(ref, where, input.Byte());
    }
    case 5:
        return Copy(folder, ref);
    default:
        return Rename(folder);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    // What to do stands in front, for the files to follow as they are.
    constexpr size_t kMostCallBytes = 8;
    Input calls(data, std::min(size, kMostCallBytes));
    Input content(data + std::min(size, kMostCallBytes), size - std::min(size, kMostCallBytes));
    const std::string attribute = content.Bytes(size_t{2} * content.Byte());
    folder.Fill(attribute, content.Bytes(size));
    while (!calls.AtEnd()) {
        Step(calls, folder);
        Expect(ReadFile(folder.Path("file")) == kData);
    }
    return 0;
}
