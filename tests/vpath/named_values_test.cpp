#include "vpath/named_values.h"

#include "support/virtual_paths.h"
#include "vpath/globals.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

TavChar* Register(const std::string& name, const TavChar* value) {
    const MyStr16 field = NameOf(name);
    return Tav0FSValRegister(&field, value);
}

void Remove(const std::string& name) {
    const MyStr16 field = NameOf(name);
    Tav0FSValRemove(&field);
}

TavChar* Get(const std::string& name) {
    const MyStr16 field = NameOf(name);
    return Tav0FSValGet(&field);
}

} // namespace

TEST(ValRegister, KeepsACopy) {
    TavChar text[] = u"en";
    TavChar* const copy = Register("lang", text);
    ASSERT_NE(copy, text);
    text[0] = u'x';
    EXPECT_EQ(std::u16string(copy), u"en");
    EXPECT_EQ(Get("lang"), copy);
}

TEST(ValRegister, ReplacesTheText) {
    Register("lang", u"en");
    TavChar* const copy = Register("lang", u"de/AT");
    EXPECT_EQ(std::u16string(copy), u"de/AT");
    EXPECT_EQ(Get("lang"), copy);
    EXPECT_EQ(g_map_KeyPathSeg.size(), 1u);
}

TEST(ValRegister, TakesItsOwnTextAgain) {
    TavChar* const first = Register("lang", u"en");
    EXPECT_EQ(std::u16string(Register("lang", first)), u"en");
}

TEST(ValRegister, LooksUpWithoutAText) {
    TavChar* const copy = Register("lang", u"en");
    EXPECT_EQ(Register("lang", nullptr), copy);
    EXPECT_EQ(Register("none", nullptr), nullptr);
    EXPECT_EQ(Get("none"), nullptr);
    EXPECT_EQ(g_map_KeyPathSeg.size(), 1u);
}

TEST(ValRegister, KeepsAnEmptyTextApartFromNone) {
    TavChar* const copy = Register("none", u"");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(*copy, 0);
    EXPECT_EQ(Get("none"), copy);
}

TEST(ValRegister, TellsLetterCaseApart) {
    Register("Lang", u"A");
    Register("lang", u"b");
    EXPECT_EQ(std::u16string(Get("Lang")), u"A");
    EXPECT_EQ(std::u16string(Get("lang")), u"b");
}

TEST(ValRegister, IgnoresBytesBehindTheTerminator) {
    Register("lang", u"en");
    EXPECT_NE(Get(std::string("lang\0rest", 9)), nullptr);
}

TEST(ValRegister, GivesNullForANullName) {
    EXPECT_EQ(Tav0FSValRegister(nullptr, u"x"), nullptr);
    EXPECT_EQ(Tav0FSValGet(nullptr), nullptr);
    Tav0FSValRemove(nullptr);
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 0u);
}

TEST(MyStr16, OrdersByUnsignedBytes) {
    EXPECT_TRUE(NameOf("Z") < NameOf("a"));
    EXPECT_TRUE(NameOf("a") < NameOf("ab"));
    EXPECT_TRUE(NameOf("a") < NameOf("\x80"));
    EXPECT_FALSE(NameOf("a") < NameOf("a"));
    EXPECT_FALSE(NameOf("b") < NameOf("a"));
}

TEST(ValRemove, ForgetsTheName) {
    Register("lang", u"en");
    Remove("lang");
    EXPECT_EQ(Get("lang"), nullptr);
}

TEST(ModifyAccount, IsZeroAtLoad) {
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 0u);
}

TEST(ModifyAccount, CountsRegistrationsAndRemovals) {
    Register("lang", u"en");
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 1u);
    Register("lang", u"en");
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 2u);
    Get("lang");
    Remove("none");
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 2u);
    Remove("lang");
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 3u);
    Remove("lang");
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 3u);
}

TEST(ModifyAccount, WrapsAround) {
    g_FSRefValModAccount = 0xFFFFFFFF;
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 0xFFFFFFFF);
    Register("lang", u"en");
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 0u);
}

TEST(ModifyAccount, LosesNoCountBetweenThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 10000; ++n) IncreaseFSVMA();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(Tav0FSValGetModifyAccount(), 80000u);
}
