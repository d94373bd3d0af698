// References where memory runs out: every allocation refused in turn, in a process that remembers nothing
// yet. Either it works all the same or there is a code; no exception gets out.
#include "platform/catalog.h"
#include "platform/iterators.h"
#include "platform/linux/reference_state.h"
#include "platform/references.h"
#include "support/faults.h"
#include "support/files.h"
#include "support/references.h"

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

class ReferencesWithoutMemory : public testing::Test {
protected:
    // `named` says that the reference leads to the object by its name alone, with nothing remembered.
    void ExpectACode(const std::function<OSStatus()>& operation, bool named) {
        OSStatus result = noErr;
        faults::FailEachCall({
            .fault = {.operation = "memory"},
            .prepare = [] { ForgetReferences(); },
            .scenario = [&] { result = operation(); },
            .check =
                [&](const std::string& failed) {
                    EXPECT_TRUE(!failed.empty() || !named || result == noErr) << result;
                    EXPECT_TRUE(result == noErr || result == memFullErr || result == fnfErr) << result;
                },
        });
    }

    TemporaryFolder folder;
};

} // namespace

TEST_F(ReferencesWithoutMemory, StoredReferenceOfAFolder_IsNotFound) {
    const FSRef stored = Reference(folder.path());
    FSRef child;
    uint8_t path[4096];
    FSIterator iterator;
    ForgetReferences();
    const std::function<OSStatus()> operations[] = {
        [&] { return FSGetCatalogInfo(&stored, kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr); },
        [&] { return FSRefMakePath(&stored, path, sizeof path); },
        [&] { return FSCompareFSRefs(&stored, &stored); },
        [&] { return FSMakeFSRefUnicode(&stored, 1, Name(u"x").unicode, kTextEncodingUnknown, &child); },
        [&] { return FSOpenIterator(&stored, kFSIterateFlat, &iterator); },
    };
    for (const auto& operation : operations) ExpectACode(operation, false);
}

TEST_F(ReferencesWithoutMemory, RootAndPaths_WorkOnceThereIsMemory) {
    WriteFile(folder / "Name", "");
    const std::string path = folder / "Name", other = folder / "NAME";
    const FSRef root = Reference("/");
    FSRef ref;
    uint8_t written[4096];
    const auto find = [&](const std::string& text) {
        return FSPathMakeRef(reinterpret_cast<const uint8_t*>(text.c_str()), &ref, nullptr);
    };
    ExpectACode([&] { return find(path); }, true);
    ExpectACode([&] { return find(other); }, true);
    ExpectACode([&] { return FSRefMakePath(&root, written, sizeof written); }, true);
    ExpectACode([&] { return FSCompareFSRefs(&root, &root); }, true);
}
