#include "platform/linux/folder_table.h"

#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

Identity Numbered(uint64_t inode, uint64_t birth = 1) {
    Identity identity;
    identity.inode = inode;
    identity.birth = birth;
    identity.device = 5;
    identity.type = S_IFDIR;
    identity.byNumber = true;
    return identity;
}

std::string NameOf(const FolderRecord& record) {
    return {record.name, record.nameLength};
}

TEST(FolderTable, Root_HasNumberTwoAndParentOne) {
    FolderTable table;
    ASSERT_NE(table.Find(kRootFolder), nullptr);
    EXPECT_EQ(table.Find(kRootFolder)->parent, kRootParent);
    EXPECT_EQ(table.Find(kRootParent), nullptr);
    EXPECT_EQ(table.Find(kNoFolder), nullptr);
    table.Remove(kRootFolder);
    table.SetPlace(kRootFolder, 9, "x");
    ASSERT_NE(table.Find(kRootFolder), nullptr);
    EXPECT_EQ(table.Find(kRootFolder)->parent, kRootParent);
}

TEST(FolderTable, LookingUp_TakesNoMemory) {
    FolderTable table;
    table.Find(kRootFolder);
    table.Find(1'000'000);
    table.FindFolder(Numbered(10), 1, kRootFolder, "a");
    table.Remove(1'000'000);
    EXPECT_EQ(table.MemoryUse(), 0u);
}

TEST(FolderTable, SameIdentity_HasTheSameNumberAndTheLatestPlace) {
    FolderTable table;
    FolderID id = table.Enter(Numbered(10), 1, kRootFolder, "old");
    EXPECT_EQ(table.Enter(Numbered(10), 1, id + 1, "new"), id);
    EXPECT_EQ(NameOf(*table.Find(id)), "new");
    EXPECT_EQ(table.Find(id)->parent, id + 1);
    EXPECT_EQ(table.size(), 2u);
}

// A name of two words of eight bytes whose first is given, and that has the hash of `other` and "collides"; "" where
// that would be no name.
static std::string WithHashOf(const std::string& other, const std::string& first) {
    const auto hashAfter = [](const std::string& word) {
        uint64_t bytes;
        std::memcpy(&bytes, word.data(), sizeof bytes);
        uint64_t hash = (2 * sizeof bytes ^ bytes) * 0x9E3779B97F4A7C15u;
        return hash ^ hash >> 32;
    };
    uint64_t second;
    std::memcpy(&second, "collides", sizeof second);
    second ^= hashAfter(other) ^ hashAfter(first);
    std::string name(sizeof second, '\0');
    std::memcpy(name.data(), &second, sizeof second);
    return name.find_first_of(std::string("/\0", 2)) == name.npos ? first + name : "";
}

TEST(FolderTable, WhereInodesAreNotStable_NamesOfOneHashAreTwoFolders) {
    Identity identity = Numbered(0, 0);
    identity.byNumber = false;
    for (int i = 0; i < 10'000; ++i) {
        const std::string one = "a foldercollides";
        const std::string other = WithHashOf("a folder", "b" + std::to_string(1'000'000 + i));
        if (other.empty()) continue;
        ASSERT_EQ(HashName(one.data(), one.size()), HashName(other.data(), other.size()));
        FolderTable table;
        const FolderID id = table.Enter(identity, 1, kRootFolder, one.c_str());
        EXPECT_NE(table.Enter(identity, 1, kRootFolder, other.c_str()), id);
        EXPECT_EQ(table.Enter(identity, 1, kRootFolder, one.c_str()), id);
        return;
    }
    FAIL() << "no such names";
}

TEST(FolderTable, OtherBirthDeviceOrMount_IsAnotherFolder) {
    FolderTable table;
    Identity otherDevice = Numbered(10);
    otherDevice.device = 6;
    std::set<FolderID> ids = {
        table.Enter(Numbered(10, 1), 1, kRootFolder, "a"), table.Enter(Numbered(10, 2), 1, kRootFolder, "a"),
        table.Enter(otherDevice, 1, kRootFolder, "a"), table.Enter(Numbered(10, 1), 2, kRootFolder, "a")};
    EXPECT_EQ(ids.size(), 4u);
}

TEST(FolderTable, RemovedNumber_StandsForNothingAlsoWhenTheSlotIsUsedAgain) {
    FolderTable table;
    FolderID id = table.Enter(Numbered(10), 1, kRootFolder, "a");
    table.Remove(id);
    EXPECT_EQ(table.Find(id), nullptr);
    EXPECT_EQ(table.FindFolder(Numbered(10), 1, kRootFolder, "a"), kNoFolder);
    std::set<FolderID> seen = {id};
    for (uint64_t round = 0; round < 5000; ++round) {
        FolderID next = table.Enter(Numbered(round), 1, kRootFolder, "a");
        ASSERT_TRUE(seen.insert(next).second) << "number given again in round " << round;
        ASSERT_GT(static_cast<int32_t>(next), 0);
        table.Remove(next);
    }
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(table.Find(id), nullptr);
}

TEST(FolderTable, InventedNumbers_StandForNothing) {
    FolderTable table;
    FolderID id = table.Enter(Numbered(10), 1, kRootFolder, "a");
    for (FolderID bad : {0u, 1u, id + 1, id | 0x80000000u, 0xFFFFFFFFu, 0x01000002u})
        EXPECT_EQ(table.Find(bad), nullptr) << bad;
}

TEST(FolderTable, WithoutStableNumbers_ThePlaceIsTheIdentity) {
    FolderTable table;
    Identity identity;
    identity.device = 5;
    identity.type = S_IFDIR;
    FolderID a = table.Enter(identity, 1, kRootFolder, "a"), b = table.Enter(identity, 1, kRootFolder, "b");
    EXPECT_NE(a, b);
    EXPECT_EQ(table.FindFolder(identity, 1, kRootFolder, "a"), a);
    table.SetPlace(a, b, "moved");
    EXPECT_EQ(table.FindFolder(identity, 1, kRootFolder, "a"), kNoFolder);
    EXPECT_EQ(table.FindFolder(identity, 1, b, "moved"), a);
}

TEST(FolderTable, Memory_IsAtMost128BytesAFolder) {
    FolderTable table;
    constexpr size_t kFolders = 100000;
    for (uint64_t i = 0; i < kFolders; ++i) {
        FolderID id =
            table.Enter(Numbered(i), 1, kRootFolder, (std::string(200, 'n') + std::to_string(i)).c_str());
        ASSERT_NE(id, kNoFolder);
    }
    EXPECT_LE(table.MemoryUse(), kFolders * 128);
    for (uint64_t i = 0; i < kFolders; ++i)
        ASSERT_NE(table.FindFolder(Numbered(i), 1, kRootFolder, ""), kNoFolder) << i;
}

TEST(FolderTable, MemoryOfRemovedFolders_IsUsedAgain) {
    FolderTable table;
    auto fillAndEmpty = [&] {
        std::vector<FolderID> ids;
        for (uint64_t i = 0; i < 5000; ++i) ids.push_back(table.Enter(Numbered(i), 1, kRootFolder, "n"));
        for (FolderID id : ids) table.Remove(id);
    };
    fillAndEmpty();
    fillAndEmpty();
    size_t bytes = table.MemoryUse();
    for (int round = 0; round < 20; ++round) fillAndEmpty();
    EXPECT_EQ(table.MemoryUse(), bytes);
}

TEST(FolderTable, Next_ComesRoundToEveryFolder) {
    FolderTable table;
    EXPECT_EQ(table.Next(kRootFolder), kNoFolder);
    std::set<FolderID> expected, seen;
    for (uint64_t i = 0; i < 1000; ++i) expected.insert(table.Enter(Numbered(i), 1, kRootFolder, "n"));
    for (uint64_t i = 0; i < 1000; i += 3) {
        FolderID gone = table.FindFolder(Numbered(i), 1, kRootFolder, "n");
        table.Remove(gone);
        expected.erase(gone);
    }
    FolderID at = kRootFolder;
    for (size_t i = 0; i < expected.size(); ++i) seen.insert(at = table.Next(at));
    EXPECT_EQ(seen, expected);
}

} // namespace
