// Tasks that are terminated in the middle of operations on objects: what such an operation has begun it ends
// first, so that nothing is left half done, and no descriptor open.
#include "metadata_support.h"
#include "platform/iterators.h"
#include "platform/launch_services.h"
#include "platform/linux/reference_state.h"
#include "platform/objects.h"
#include "support/forced_end.h"
#include "support/running_task.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 40;

class TerminatedOperations : public ForcedEnd {
protected:
    void SetUp() override {
        ForcedEnd::SetUp();
        fs::create_directories(folder_ / "d");
        WriteFile(folder_ / "d/Name", "");
        WriteFile(folder_ / "other", "");
    }

    // Runs `operation` over and over in a task and ends that at a random moment. The operation must not
    // allocate itself: a lock of the C library would stay held.
    void EndDuring(const std::function<void()>& operation) {
        std::atomic<int> times = 0;
        std::function<OSStatus()> body = [&]() -> OSStatus {
            for (;;) {
                operation();
                ++times;
            }
        };
        RunningTask task([](void* function) { return (*static_cast<decltype(body)*>(function))(); }, &body);
        while (times < 2) std::this_thread::yield();
        const unsigned moment = random_() % 20'000;
        for (std::atomic<unsigned> count = 0; count < moment; ++count) {
        }
        ASSERT_EQ(MPTerminateTask(task.Id(), 5), noErr);
        ASSERT_EQ(task.Result(), 5);
    }

    // A folder that is still held by an ended task is not closed when it is forgotten.
    void ExpectNothingLeftOpen(const std::function<void()>& operation) {
        ForgetReferences();
        const size_t before = OpenDescriptors();
        for (int round = 0; round < kRounds && !HasFatalFailure(); ++round) {
            EndDuring(operation);
            ForgetReferences();
            ASSERT_EQ(OpenDescriptors(), before) << "round " << round;
        }
    }

    // How many of a file and its sidecar are there.
    int PartsOf(const std::string& name) const {
        return fs::exists(folder_ / name) + fs::exists(folder_ / ("._" + name));
    }

    TemporaryFolder folder_;
    std::mt19937 random_{20'231};
};

OSErr Rename(FSRef& ref, const char16_t* name) {
    return FSRenameUnicode(&ref, 1, reinterpret_cast<const UniChar*>(name), kTextEncodingUnknown, &ref);
}

} // namespace

TEST_F(TerminatedOperations, Rename_LeavesFileAndSidecarTogether) {
    const FSRef parent = RefTo(folder_.path());
    for (int round = 0; round < kRounds; ++round) {
        fs::remove_all(folder_ / "a");
        fs::remove_all(folder_ / "b");
        fs::remove_all(folder_ / "._a");
        fs::remove_all(folder_ / "._b");
        WriteFile(folder_ / "a", "data");
        FSRef ref;
        ASSERT_EQ(ChildRef(parent, u"a", ref), noErr);
        ASSERT_EQ(MakeResourceFork(ref), noErr);
        ASSERT_EQ(WriteWhole(ref, true, "resource"), noErr);
        ASSERT_NO_FATAL_FAILURE(EndDuring([&] {
            Rename(ref, u"b");
            Rename(ref, u"a");
        }));
        ASSERT_TRUE((PartsOf("a") == 2 && PartsOf("b") == 0) || (PartsOf("a") == 0 && PartsOf("b") == 2))
            << "round " << round;
    }
}

TEST_F(TerminatedOperations, Delete_LeavesNoSidecarAlone) {
    const FSRef parent = RefTo(folder_.path());
    FSRef ref;
    HFSUniStr255 fork;
    FSGetResourceForkName(&fork);
    const char16_t name = u'a';
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(EndDuring([&] {
            FSCreateFileUnicode(&parent, 1, reinterpret_cast<const UniChar*>(&name), kFSCatInfoNone, nullptr,
                                &ref, nullptr);
            FSCreateFork(&ref, fork.length, fork.unicode);
            FSDeleteObject(&ref);
        }));
        ASSERT_TRUE(PartsOf("a") == 0 || fs::exists(folder_ / "a")) << "round " << round;
        fs::remove(folder_ / "a");
        fs::remove(folder_ / "._a");
    }
}

TEST_F(TerminatedOperations, CreateAndMove_LeaveNothingOpen) {
    const FSRef parent = RefTo(folder_.path()), destination = RefTo(folder_ / "d");
    FSRef ref;
    const char16_t name = u'a';
    ExpectNothingLeftOpen([&] {
        FSCreateFileUnicode(&parent, 1, reinterpret_cast<const UniChar*>(&name), kFSCatInfoNone, nullptr,
                            &ref, nullptr);
        FSMoveObject(&ref, &destination, &ref);
        FSDeleteObject(&ref);
    });
}

TEST_F(TerminatedOperations, PathsToReferences_LeaveNothingOpen) {
    const std::string path = folder_ / "D/name";
    ExpectNothingLeftOpen([&] {
        FSRef ref;
        FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr);
    });
}

TEST_F(TerminatedOperations, ReferencesToPaths_LeaveNothingOpen) {
    // A file that others have renamed is looked for afresh each time.
    const FSRef ref = EntryRef(folder_ / "d/Name");
    fs::rename(folder_ / "d", folder_ / "e");
    ExpectNothingLeftOpen([&] {
        uint8_t path[4096];
        FSRefMakePath(&ref, path, sizeof path);
    });
}

TEST_F(TerminatedOperations, NamesInFolders_LeaveNothingOpen) {
    const FSRef parent = RefTo(folder_.path());
    const std::u16string name = u"other";
    ExpectNothingLeftOpen([&] {
        FSRef ref;
        FSMakeFSRefUnicode(&parent, 5, reinterpret_cast<const UniChar*>(name.data()), kTextEncodingUnknown,
                           &ref);
    });
}

TEST_F(TerminatedOperations, Comparisons_LeaveNothingOpen) {
    const FSRef a = RefTo("/etc"), b = RefTo("/usr");
    ExpectNothingLeftOpen([&] { FSCompareFSRefs(&a, &b); });
}

TEST_F(TerminatedOperations, PackageLooks_LeaveNothingOpen) {
    const FSRef ref = RefTo("/etc");
    ExpectNothingLeftOpen([&] {
        LSItemInfoRecord info;
        LSCopyItemInfoForRef(&ref, kLSRequestBasicFlagsOnly, &info);
    });
}

TEST_F(TerminatedOperations, RefusedIterators_LeaveNothingOpen) {
    const FSRef file = RefTo("/etc/passwd");
    ExpectNothingLeftOpen([&] {
        FSIterator iterator;
        FSOpenIterator(&file, kFSIterateFlat, &iterator);
    });
}

TEST_F(TerminatedOperations, Listings_LeaveTheIteratorUsable) {
    for (int i = 0; i < 500; ++i) WriteFile(folder_ / ("d/f" + std::to_string(i)), "");
    for (int round = 0; round < kRounds; ++round) {
        ForgetReferences();
        const size_t before = OpenDescriptors();
        const FSRef container = RefTo(folder_ / "d");
        FSIterator iterator = nullptr;
        ASSERT_EQ(FSOpenIterator(&container, kFSIterateDelete, &iterator), noErr);
        ASSERT_NO_FATAL_FAILURE(EndDuring([&] {
            FSCatalogInfo info;
            FSRef ref;
            ItemCount count;
            FSGetCatalogInfoBulk(iterator, 1, &count, nullptr, kFSCatInfoNodeFlags, &info, &ref, nullptr,
                                 nullptr);
        }));
        ASSERT_EQ(FSCloseIterator(iterator), noErr);
        ForgetReferences();
        ASSERT_EQ(OpenDescriptors(), before) << "round " << round;
    }
}
