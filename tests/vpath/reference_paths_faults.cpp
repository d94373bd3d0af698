#include "support/faults.h"
#include "support/files.h"
#include "support/virtual_paths.h"

#include <gtest/gtest.h>

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

TEST(ReferencePathFaults, NothingIsFoundWithoutThePlatformOrMemory) {
    const Ref ref = MakeRef(u"/");
    for (const char* operation : {"malloc", "FSPathMakeRefWithOptions"}) {
        FSRef out;
        {
            const Injection fault({.call = 1, .operation = operation});
            const int32_t found = Tav0FSRToAbs(ref.get(), &out, 0);
            const Pause pause;
            EXPECT_EQ(fault.fired(), 1u);
            EXPECT_EQ(found, 0) << operation;
        }
        const Injection fault({.call = 1, .operation = operation});
        const int32_t exists = Tav0FSRIsExist(ref.get());
        const Pause pause;
        EXPECT_EQ(fault.fired(), 1u);
        EXPECT_EQ(exists, 0) << operation;
    }
}
