// Operations in a tree that another process upsets all the time: nothing outside the tree is ever read into
// it, written, moved or deleted, every result is a documented one, and nothing stays open.
#include "races/vandal.h"

#include "TavPort.h"
#include "copy/recursive_delete.h"
#include "platform/forks.h"
#include "platform/iterators.h"
#include "platform/linux/folders.h"
#include "platform/metadata_support.h"
#include "platform/objects.h"

#include <chrono>
#include <filesystem>
#include <random>
#include <set>

namespace fs = std::filesystem;

namespace {

constexpr auto kTime = std::chrono::milliseconds(2000);

class OtherProcess : public testing::Test {
protected:
    OtherProcess() : seed_(std::random_device()()), random_(seed_) {
        std::printf("seed %u\n", seed_);
        fs::create_directories(outside_ + "/a");
        WriteFile(outside_ + "/secret", "outside");
        WriteFile(outside_ + "/f", "outside");
        WriteFile(outside_ + "/a/g", "outside");
        fs::create_directory(folder / "target");
        TavGetDriveType(u"/"); // the list of volumes keeps a file open
    }

    // Makes the calls while the other process is at work, then looks at what must be as it was.
    template <typename Calls>
    void Race(Calls calls) {
        const std::set<std::string> before = Outside();
        const size_t descriptors = (CloseIdleDescriptors(), OpenDescriptors());
        unsigned rounds = 0;
        {
            const Vandal vandal(tree_, outside_, seed_);
            const auto end = std::chrono::steady_clock::now() + kTime;
            while (std::chrono::steady_clock::now() < end && !HasFailure()) {
                calls();
                ++rounds;
            }
        }
        EXPECT_EQ(Outside(), before);
        EXPECT_EQ((CloseIdleDescriptors(), OpenDescriptors()), descriptors);
        EXPECT_GT(rounds, 1u);
    }

    // Every entry outside the tree with its content.
    std::set<std::string> Outside() const {
        std::set<std::string> entries;
        for (const auto& entry : fs::recursive_directory_iterator(outside_))
            entries.insert(entry.path().string() + (entry.is_regular_file() ? ReadFile(entry.path()) : ""));
        return entries;
    }

    // A path in the tree that may or may not be there.
    std::string AnyPath(bool isFile) {
        const char* const folders[] = {"/a", "/b", "/c"};
        std::string path = tree_ + folders[random_() % 3];
        if (random_() % 2) path += folders[random_() % 3];
        if (isFile) path += random_() % 2 ? "/f" : "/g";
        return path;
    }

    // A reference to an entry of the tree itself, made name by name, so that no link has been followed.
    bool RefInTree(const std::string& path, FSRef& ref) {
        if (PathToRef(tree_, ref) != noErr) return false;
        for (const fs::path& name : fs::path(path).lexically_relative(tree_)) {
            FSRef child;
            FSCatalogInfo info;
            if (FSGetCatalogInfo(&ref, kFSCatInfoFinderInfo, &info, nullptr, nullptr, nullptr) != noErr ||
                std::memcmp(info.finderInfo, "slnk", 4) == 0 ||
                ChildRef(ref, name.u16string(), child) != noErr)
                return false;
            ref = child;
        }
        return true;
    }

    static void ExpectDocumented(OSStatus result) {
        static const std::set<OSStatus> kCodes = {
            noErr,           fnfErr,  bdNamErr, fBsyErr,          dupFNErr, diffVolErr, afpAccessDenied,
            errFSNotAFolder, permErr, paramErr, errFSNoMoreItems, eofErr,   -1234};
        EXPECT_TRUE(kCodes.contains(result)) << result;
    }

    TemporaryFolder folder;
    const std::string tree_ = folder / "tree", outside_ = folder / "outside";
    const unsigned seed_;
    std::mt19937 random_;
};

TEST_F(OtherProcess, DeletingTheTree_NeverLeavesIt) {
    Race([&] {
        FSRef ref;
        const OSStatus found = PathToRef(tree_, ref);
        ExpectDocumented(found);
        if (found == noErr) ExpectDocumented(FSDeleteObjects(&ref));
    });
}

TEST_F(OtherProcess, CopyingTheTree_BringsNothingFromOutside) {
    Race([&] {
        const std::string copy = folder / "target/copy";
        TavCopyFile(Wide(tree_).c_str(), Wide(copy).c_str(), 1);
        if (!fs::exists(copy)) return;
        for (const auto& entry : fs::recursive_directory_iterator(copy)) {
            EXPECT_NE(entry.path().filename(), "secret");
            if (entry.is_symlink() || !entry.is_regular_file()) continue;
            const std::string content = ReadFile(entry.path());
            EXPECT_TRUE(content == "inside" || content.empty()) << entry.path() << content;
        }
        fs::remove_all(copy);
    });
}

TEST_F(OtherProcess, ListingAFolder_ShowsNothingFromOutside) {
    Race([&] {
        FSRef ref;
        FSIterator iterator = nullptr;
        if (!RefInTree(AnyPath(false), ref)) return;
        OSErr result = FSOpenIterator(&ref, kFSIterateFlat, &iterator);
        ExpectDocumented(result);
        while (result == noErr) {
            HFSUniStr255 name;
            ItemCount count = 0;
            FSRef child;
            result = FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNone, nullptr, &child,
                                          nullptr, &name);
            ExpectDocumented(result);
            if (count == 1) {
                EXPECT_NE(Narrow({name.unicode, name.unicode + name.length}), "secret");
            }
        }
        if (iterator) FSCloseIterator(iterator);
    });
}

TEST_F(OtherProcess, OpeningAReferencesFile_ReadsNothingFromOutside) {
    Race([&] {
        FSRef ref;
        FSForkRefNum fork = 0;
        if (!RefInTree(AnyPath(true), ref)) return;
        const OSErr result = OpenByRef(ref, false, fsRdPerm, fork);
        ExpectDocumented(result);
        if (result != noErr) return;
        char bytes[8];
        ByteCount count = 0;
        ExpectDocumented(FSReadFork(fork, fsFromStart, 0, sizeof bytes, bytes, &count));
        const std::string content(bytes, count);
        // The text of a link that took the file's place before the reference was made may be read.
        EXPECT_NE(content, "outside");
        FSCloseFork(fork);
    });
}

TEST_F(OtherProcess, WritingToAReferencesFile_TouchesNothingOutside) {
    Race([&] {
        FSRef ref;
        if (RefInTree(AnyPath(true), ref)) ExpectDocumented(WriteWhole(ref, false, "inside"));
    });
}

TEST_F(OtherProcess, LookingUpPaths_GivesDocumentedResults) {
    Race([&] {
        FSRef ref;
        Boolean isFolder;
        uint8_t path[1024];
        const OSStatus found = PathToRef(AnyPath(random_() % 2), ref, &isFolder);
        ExpectDocumented(found);
        if (found == noErr) ExpectDocumented(FSRefMakePath(&ref, path, sizeof path));
    });
}

TEST_F(OtherProcess, Renaming_NeverTouchesWhatIsOutside) {
    Race([&] {
        FSRef ref, renamed;
        const std::u16string name = random_() % 2 ? u"a" : u"f";
        if (!RefInTree(AnyPath(random_() % 2), ref)) return;
        ExpectDocumented(FSRenameUnicode(&ref, static_cast<UniCharCount>(name.size()),
                                         reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown,
                                         &renamed));
    });
}

TEST_F(OtherProcess, Moving_NeverTouchesWhatIsOutside) {
    Race([&] {
        FSRef ref, target, moved;
        if (!RefInTree(AnyPath(random_() % 2), ref) || !RefInTree(AnyPath(false), target)) return;
        ExpectDocumented(FSMoveObject(&ref, &target, &moved));
    });
}

} // namespace
