#include "vpath/path_key.h"

#include "support/guarded.h"
#include "support/virtual_paths.h"

#include <gtest/gtest.h>
#include <string>

namespace {

// Of a text that stands before a forbidden page, and behind one.
PathKey KeyOf(const std::u16string& path, size_t from = 0) {
    const GuardedText<char16_t> atEnd(path, GuardedMemory::At::End), atStart(path, GuardedMemory::At::Start);
    const PathKey key(atEnd.get(), path.size(), from);
    EXPECT_EQ(key, PathKey(atStart.get(), path.size(), from));
    return key;
}

constexpr uint64_t Bytes(const char (&text)[9]) {
    uint64_t bytes = 0;
    for (int i = 0; i < 8; ++i) bytes = bytes << 8 | static_cast<unsigned char>(text[i]);
    return bytes;
}

} // namespace

TEST(PathKey, HoldsSixteenUnitsFromAPlaceOn) {
    const PathKey key = KeyOf(u"/Users/ann/Documents/letter.txt", 3);
    EXPECT_EQ(key.first, Bytes("ers/ann/"));
    EXPECT_EQ(key.second, Bytes("Document"));
}

TEST(PathKey, EndsWithThePath) {
    const std::u16string path = u"/Users/ann/Documents";
    for (size_t from = 0; from <= path.size(); ++from) {
        const std::u16string rest = path.substr(from, PathKey::kUnits) + std::u16string(PathKey::kUnits, 0);
        EXPECT_EQ(KeyOf(path, from), KeyOf(rest)) << from;
    }
}

TEST(PathKey, OfAShortPathIsPaddedWithZeros) {
    EXPECT_EQ(KeyOf(u"/a").first, Bytes("/a\0\0\0\0\0\0"));
    EXPECT_EQ(KeyOf(u"/a").second, 0u);
    EXPECT_EQ(KeyOf(u""), PathKey());
}

TEST(PathKey, EndsWithAUnitBeyondAByteWhereverItStands) {
    const std::u16string path = u"/Users/ann/Documents";
    for (size_t at = 0; at < PathKey::kUnits; ++at) {
        for (const char16_t unit : {u'\xFF', u'\x100', u'\x4E2D', u'\xFFFF'}) {
            std::u16string wide = path;
            wide[at] = unit;
            const PathKey key = KeyOf(wide);
            EXPECT_EQ(key, KeyOf(wide.substr(0, at + 1))) << at;
            EXPECT_TRUE(KeyOf(path) < key && !(key < KeyOf(path))) << at;
            wide[at] = u'\xFE';
            EXPECT_TRUE(KeyOf(wide) < key) << at;
        }
    }
}

TEST(PathKey, OrdersAsThePathsDo) {
    const std::u16string paths[] = {u"",           u"/",          u"/a",         u"/a/b",      u"/abcdef",
                                    u"/abcdefg",   u"/abcdefg/a", u"/abcdefg/b", u"/abcdefgh", u"/b",
                                    u"/b\x80\x7F", u"/b\x80\x80", u"/b\xFE"};
    for (const auto& left : paths) {
        for (const auto& right : paths) EXPECT_EQ(KeyOf(left) < KeyOf(right), left < right);
    }
}
