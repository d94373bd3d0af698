#include "platform/linux/media.h"

#include <filesystem>
#include <gtest/gtest.h>

static std::string SomeDevice() {
    std::error_code error;
    std::filesystem::directory_iterator entry("/sys/class/block", error);
    return error || entry == std::filesystem::directory_iterator() ? "" : entry->path().filename().string();
}

TEST(FindMedia, NothingChanged_IsNotLookedUpAgain) {
    std::string name = SomeDevice();
    if (name.empty()) GTEST_SKIP() << "no block device to be seen";
    if (!std::filesystem::exists("/sys/kernel/uevent_seqnum"))
        GTEST_SKIP() << "changes are not numbered here";
    auto known = FindMedia(name);
    ASSERT_NE(known, nullptr);
    // Something may change once or twice meanwhile, but not every time.
    for (int i = 0; i < 1000 && FindMedia(name) != known; ++i) known = FindMedia(name);
    EXPECT_EQ(FindMedia(name), known);
}

TEST(FindMedia, UnknownName_IsNone) {
    EXPECT_EQ(FindMedia("no such device"), nullptr);
    EXPECT_EQ(FindMedia(""), nullptr);
}

TEST(DeviceName, UnknownNumber_IsEmpty) {
    EXPECT_EQ(DeviceName(0), "");
}
