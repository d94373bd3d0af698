#include "vpath/translation_keys.h"

#include "support/virtual_paths.h"
#include "vpath/globals.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

FSRef Filled(uint8_t byte) {
    FSRef ref;
    std::memset(&ref, byte, sizeof ref);
    return ref;
}

bool Same(const FSRef* a, const FSRef& b) {
    return a && std::memcmp(a, &b, sizeof b) == 0;
}

} // namespace

TEST(KeyNumber, TakesTheFirstByteAsTheHighest) {
    const TavKey key = TAV_KEY('p', 'r', 'e', 'f');
    EXPECT_EQ(std::memcmp(&key, "pref", 4), 0);
    EXPECT_EQ(KeyNumber(&key), 0x70726566);
    const TavKey high = KeyOf("\xff\xfe\x01");
    EXPECT_EQ(KeyNumber(&high), static_cast<int32_t>(0xFFFE0100));
}

TEST(KeyNumber, ComesBackThroughKeyInMemory) {
    for (const char* characters : {"pref", "ab", "\x80\x81\x82\x83", ""}) {
        const TavKey key = KeyOf(characters);
        EXPECT_EQ(KeyInMemory(KeyNumber(&key)), key);
    }
}

TEST(TranPathRegister, KeepsACopy) {
    const TavKey key = KeyOf("copy");
    FSRef folder = Filled(1);
    FSRef* const copy = Tav0TranPathRegister(&key, &folder);
    ASSERT_NE(copy, &folder);
    folder = Filled(2);
    EXPECT_TRUE(Same(copy, Filled(1)));
}

TEST(TranPathRegister, ReplacesTheFolderOfAKey) {
    const TavKey key = KeyOf("pref");
    const FSRef first = Filled(1);
    const FSRef second = Filled(2);
    Tav0TranPathRegister(&key, &first);
    FSRef* const copy = Tav0TranPathRegister(&key, &second);
    EXPECT_TRUE(Same(copy, second));
    EXPECT_EQ(Tav0TranPathGet(&key), copy);
    EXPECT_EQ(g_map_KeyPath.size(), 1u);
}

TEST(TranPathRegister, LooksUpWithoutAFolder) {
    const TavKey known = KeyOf("know");
    const TavKey unknown = KeyOf("none");
    const FSRef folder = Filled(3);
    FSRef* const copy = Tav0TranPathRegister(&known, &folder);
    EXPECT_EQ(Tav0TranPathRegister(&known, nullptr), copy);
    EXPECT_EQ(Tav0TranPathRegister(&unknown, nullptr), nullptr);
    EXPECT_EQ(Tav0TranPathGet(&unknown), nullptr);
    EXPECT_EQ(g_map_KeyPath.size(), 1u);
}

TEST(TranPathRegister, GivesNullForANullKey) {
    const FSRef folder = Filled(4);
    EXPECT_EQ(Tav0TranPathRegister(nullptr, &folder), nullptr);
    EXPECT_EQ(Tav0TranPathRegister(nullptr, nullptr), nullptr);
    EXPECT_EQ(Tav0TranPathGet(nullptr), nullptr);
    EXPECT_TRUE(g_map_KeyPath.empty());
}

TEST(TranPathRegister, OrdersKeysAsSignedNumbers) {
    const FSRef folder = Filled(5);
    for (const char* characters : {"b", "\x80", "a", "\xff"}) {
        const TavKey key = KeyOf(characters);
        Tav0TranPathRegister(&key, &folder);
    }
    std::vector<int32_t> order;
    for (const auto& entry : g_map_KeyPath) order.push_back(entry.first);
    EXPECT_EQ(order, (std::vector<int32_t>{static_cast<int32_t>(0x80000000), static_cast<int32_t>(0xFF000000),
                                           0x61000000, 0x62000000}));
}

TEST(FreeSecond, EmptiesTheMap) {
    map_KeyPath map;
    map.Store(map_KeyPath::MakeNode(1, static_cast<FSRef*>(std::malloc(sizeof(FSRef)))));
    map.Store(map_KeyPath::MakeNode(2, static_cast<FSRef*>(std::malloc(sizeof(FSRef)))));
    map.FreeSecond();
    EXPECT_TRUE(map.empty());
}
