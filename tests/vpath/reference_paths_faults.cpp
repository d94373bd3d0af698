#include "support/faults.h"
#include "support/files.h"
#include "support/virtual_paths.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using faults::FailEachCall;
using faults::Injection;
using faults::Pause;

// The reference that `create` gives must be null in every run but the last.
void FailCreation(const std::string& operation, const std::function<OpacTavFSRef*()>& create) {
    OpacTavFSRef* made = nullptr;
    EXPECT_GE(FailEachCall({.fault = {.operation = operation},
                            .scenario = [&] { made = create(); },
                            .check =
                                [&](const std::string& failed) {
                                    EXPECT_EQ(made == nullptr, !failed.empty()) << failed;
                                    Tav0FSRRelease(made);
                                }}),
              1u);
}

} // namespace

TEST(ReferencePathFaults, AChildWithoutMemoryIsNull) {
    const Ref ref = MakeRef(u"/a");
    FailCreation("malloc", [&] { return Tav0FSRAppendPathComponent(ref.get(), u"b"); });
}

TEST(ReferencePathFaults, AParentWithoutMemoryIsNull) {
    const Ref ref = MakeRef(u"/a/b");
    FailCreation("malloc", [&] { return Tav0FSRRemoveLastPathComponent(ref.get(), nullptr, 0); });
}

TEST(ReferencePathFaults, AFolderWithoutAPathIsNull) {
    const TemporaryFolder folder;
    const FSRef ref = PlatformRef(folder.path());
    FailCreation("FSRefMakePath", [&] { return Tav0FSRCreateAbs(&ref); });
    FailCreation("malloc", [&] { return Tav0FSRCreateAbs(&ref); });
}

TEST(ReferencePathFaults, TheLastNameTakesNoMemory) {
    const Ref ref = MakeRef(u"/a/b");
    TavChar name[4];
    const Injection fault({.call = 1, .lasting = true, .operation = "memory"});
    const int32_t result = Tav0FSRGetLastPathComponent(ref.get(), name, 4);
    const Pause pause;
    EXPECT_EQ(result, 1);
    EXPECT_EQ(std::u16string(name), u"b");
}

TEST(ReferencePathFaults, NothingIsFoundWithoutThePlatform) {
    const Ref ref = MakeRef(u"/");
    const faults::Fault refused = {.call = 1, .operation = "FSPathMakeRefWithOptions"};
    FSRef out;
    {
        const Injection fault(refused);
        const int32_t found = Tav0FSRToAbs(ref.get(), &out, 0);
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(found, 0);
    }
    const Injection fault(refused);
    const int32_t exists = Tav0FSRIsExist(ref.get());
    const Pause pause;
    EXPECT_EQ(fault.fired(), 1u);
    EXPECT_EQ(exists, 0);
}

TEST(ReferencePathFaults, ThePathOfAnObjectIsConvertedWithoutABlockOfMemory) {
    const Ref ref = MakeRef(u"/");
    FSRef out;
    const Injection fault({.call = 1, .operation = "malloc"});
    const int32_t found = Tav0FSRToAbs(ref.get(), &out, 0);
    const Pause pause;
    EXPECT_EQ(found, 1);
    EXPECT_EQ(fault.fired(), 0u);
}

// kept: a key whose folder has no path contributes nothing; any other failure gives no path at all.
TEST(KeyFaults, EachCallOfAnEvaluationFails_GivesThePathOrNullOrOneWithoutTheFolder) {
    const TemporaryFolder folder;
    const TavKey key = KeyOf("pref");
    const MyStr16 name = NameOf("lang");
    const FSRef platform = PlatformRef(folder.path());
    Tav0TranPathRegister(&key, &platform);
    Tav0FSValRegister(&name, u"en");
    const Exp expression = MakeExp(u"$pref\\x\\%lang");
    const std::u16string whole = Wide(folder / "x/en");
    for (const char* operation : {"seam", "memory"}) {
        OpacTavFSRef* made = nullptr;
        std::multiset<std::u16string> given;
        EXPECT_GT(FailEachCall({
                      .fault = {.operation = operation},
                      .scenario = [&] { made = Tav0FSExpCalculateFSRCreate(expression.get(), nullptr); },
                      .check =
                          [&](const std::string& failed) {
                              const std::u16string path = PathOf(made);
                              const bool hasNoFolder = failed == "FSRefMakePath" || failed == "malloc";
                              EXPECT_TRUE(path == whole || (path == u"x/en" && hasNoFolder) ||
                                          (!made && !failed.empty()))
                                  << failed << " gives " << Narrow(path);
                              given.insert(path);
                              Tav0FSRRelease(made);
                          },
                  }),
                  0u);
        EXPECT_EQ(given.count(u"x/en"), 1u) << operation;
        EXPECT_GE(given.count(whole), 1u) << operation;
    }
    Tav0FSValRemove(&name);
}

// A key's folder, and what is asked of references and expressions that are there.
TEST(KeyFaults, EachCallFails_GivesTheFolderOrNull) {
    const TemporaryFolder folder;
    const TavKey key = KeyOf("pref");
    const FSRef platform = PlatformRef(folder.path());
    Tav0TranPathRegister(&key, &platform);
    const Exp expression = MakeExp(u"$pref");
    OpacTavFSRef* made = nullptr;
    int32_t isBase = 0;
    uint32_t units = 0;
    int32_t isRelative = -1;
    const unsigned runs = faults::FailEachCall({
        .scenario =
            [&] {
                TavChar text[64];
                uint32_t nameUnits = 64;
                made = Tav0FSRCreateTK(&key);
                isBase = made ? Tav0FSRIsBaseOnKey(made, &key, nullptr) : 0;
                units = Tav0FSExpGetExp(expression.get(), text, 64);
                isRelative = Tav0FSExpIsRelPath(expression.get(), text, &nameUnits);
            },
        .check =
            [&](const std::string& failed) {
                if (failed.empty()) {
                    ASSERT_NE(made, nullptr);
                }
                if (made) {
                    EXPECT_EQ(PathOf(made), Wide(folder.path()));
                }
                EXPECT_EQ(units, 6u) << failed;
                EXPECT_EQ(isRelative, 0) << failed;
                Tav0FSRRelease(made);
            },
    });
    EXPECT_GT(runs, 2u);
}
