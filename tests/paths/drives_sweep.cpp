// Whatever fails on the way from a device to its medium, everything is given back and no medium is made up.
// Device trees are made up, so that the whole walk is made on every machine.
#include "paths/drives.h"
#include "support/device_tree.h"
#include "support/faults.h"

#include <gtest/gtest.h>

// Looks the device's medium up with each call failing in turn; `whole` is what it is without a failure.
static void FailEachCallOnTheWayTo(const char* device, const VolumeInfo& whole) {
    for (const char* calls : {"seam", "memory"}) {
        VolumeInfo info{};
        unsigned runs = faults::FailEachCall({
            .fault = {.operation = calls},
            .scenario =
                [&] {
                    info = {};
                    GetAdditionalVolumeInfo(1, device, &info);
                },
            .check =
                [&](const std::string& failed) {
                    // A property that cannot be had counts as false: a removable medium passes for fixed.
                    bool mayBeFixed = !failed.empty() && info.mediaType == kMediaFixed;
                    bool mayBeNone = !failed.empty() && info.mediaType == kMediaNone;
                    EXPECT_TRUE(info.mediaType == whole.mediaType || mayBeFixed || mayBeNone)
                        << failed << ": " << info.mediaType;
                    EXPECT_EQ(info.mediaFlags & ~whole.mediaFlags, 0u) << failed;
                    if (failed.empty()) {
                        EXPECT_EQ(info.mediaFlags, whole.mediaFlags);
                    }
                },
        });
        EXPECT_GT(runs, std::string(calls) == "seam" ? 10u : 2u) << calls;
    }
}

TEST(MediaSweep, MappedVolume_IsFixedOrNone) {
    DeviceTree tree;
    AddMapped(tree);
    FailEachCallOnTheWayTo("dm-0", {kMediaFixed, kMediaWritable});
}

TEST(MediaSweep, PartitionOfAStick_IsRemovableFixedOrNone) {
    DeviceTree tree;
    AddUsbStick(tree);
    FailEachCallOnTheWayTo("sdb1", {kMediaRemovable, kMediaWritable | kMediaEjectable});
}

TEST(MediaSweep, Disc_IsOpticalOrNone) {
    DeviceTree tree;
    AddDVD(tree);
    FailEachCallOnTheWayTo("sr1", {kMediaDVD, kMediaEjectable});
}
