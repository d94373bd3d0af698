#include "copy/linked_list.h"
#include "support/faults.h"

#include <gtest/gtest.h>

// Each item stands in for something that must be disposed of exactly once.
TEST(AddToTail, EachAllocationFails_LeavesTheDataWithTheCaller) {
    GenLinkedList list;
    int items[3];
    OSErr results[3];
    unsigned runs = faults::FailEachCall({
        .prepare = [&] { InitLinkedList(&list, nullptr); },
        .scenario =
            [&] {
                for (int i = 0; i < 3; ++i) results[i] = AddToTail(&list, &items[i]);
            },
        .check =
            [&](const std::string& failed) {
                unsigned added = 0;
                for (OSErr result : results) added += result == noErr;
                EXPECT_EQ(added, failed.empty() ? 3u : 2u);
                EXPECT_EQ(GetNumberOfItems(&list), added);
                EXPECT_TRUE(results[0] == noErr || results[0] == memFullErr);
                DestroyList(&list);
            },
    });
    EXPECT_GE(runs, 3u);
}
