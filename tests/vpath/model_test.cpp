// Evaluation, canonicalisation and re-expression of random paths against the naive model.
#include "support/expression_model.h"
#include "support/files.h"
#include "support/virtual_paths.h"
#include "vpath/canonicalize.h"

#include <gtest/gtest.h>
#include <optional>
#include <random>

namespace {

using Text = std::u16string;

template <size_t n>
Text Pick(std::mt19937& random, const TavChar* const (&choices)[n]) {
    return choices[random() % n];
}

Text RandomSegment(std::mt19937& random) {
    static const TavChar* const pieces[] = {u"a",  u"b", u"name.txt", u".",  u"..",   u"...",   u"",
                                            u".x", u":", u"x:",       u"$k", u"%one", u"%two",  u"%none",
                                            u"%",  u"/", u"a/b",      u"/c", u"d/",   u"\u00e9"};
    return Pick(random, pieces);
}

Text RandomExpression(std::mt19937& random) {
    static const TavChar* const roots[] = {u"M\\/",  u"M", u"",   u"$key", u"$keys", u"$k",
                                           u"$none", u"$", u"$$", u"$$b",  u"$$base"};
    Text text = Pick(random, roots);
    for (unsigned i = random() % 8; i > 0; --i) text += u"\\" + RandomSegment(random);
    return text;
}

} // namespace

TEST(Model, CanonicalisesAlike) {
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    static const TavChar* const pieces[] = {u"/",  u"/", u"/",  u".",   u"..", u"a",
                                            u"bc", u":", u"C:", u"x.y", u"..."};
    unsigned accepted = 0;
    for (int i = 0; i < 200000; ++i) {
        Text path;
        for (unsigned n = random() % 12; n > 0; --n) path += Pick(random, pieces);
        const std::optional<Text> expected = ExpressionModel::Canonical(path);
        Text actual = path;
        const bool ok = MyPathCanonicalize(actual.data());
        ASSERT_EQ(ok, expected.has_value()) << Narrow(path) << ", seed " << seed;
        if (ok) {
            ASSERT_EQ(Text(actual.c_str()), *expected) << Narrow(path) << ", seed " << seed;
        }
        accepted += ok;
    }
    EXPECT_GT(accepted, 10000u);
}

TEST(Model, EvaluatesAlike) {
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    const TemporaryFolder folder;
    ExpressionModel model;
    for (const char* characters : {"key", "k"}) {
        const TavKey key = KeyOf(characters);
        const FSRef ref = PlatformRef(folder.path());
        Tav0TranPathRegister(&key, &ref);
        model.folders[characters] = Wide(folder.path());
    }
    for (const auto& [name, value] : {std::pair{"one", u"\\\\q\\%two\\r\\\\s\\"}, {"two", u"/t/.."}}) {
        const MyStr16 field = NameOf(name);
        Tav0FSValRegister(&field, value);
        model.values[name] = value;
    }
    const Text base = u"/base/folder";
    const Ref baseRef = MakeRef(base);
    unsigned accepted = 0;
    for (int i = 0; i < 100000; ++i) {
        const Text expression = RandomExpression(random);
        const bool withBase = random() % 4 != 0;
        const std::optional<Text> expected = model.Evaluate(expression, withBase ? &base : nullptr);
        const Ref actual(
            Tav0FSExpCalculateFSRCreate(MakeExp(expression).get(), withBase ? baseRef.get() : nullptr));
        ASSERT_EQ(PathOf(actual), expected.value_or(u"(null)")) << Narrow(expression) << ", seed " << seed;
        accepted += expected.has_value();
    }
    EXPECT_GT(accepted, 10000u);
}

TEST(Model, ExpressesPathsUnderAFolderAlike) {
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    static const TavChar* const pieces[] = {u"/", u"/a", u"/A", u"/ab", u"/b", u"a"};
    unsigned under = 0;
    for (int i = 0; i < 100000; ++i) {
        Text folder;
        Text path;
        for (unsigned n = 1 + random() % 3; n > 0; --n) folder += Pick(random, pieces);
        for (unsigned n = 1 + random() % 5; n > 0; --n) path += Pick(random, pieces);
        const std::optional<Text> expected = ExpressionModel::Express(path, "home", folder);
        const Ref ref = MakeRef(path);
        const Ref base = MakeRef(folder);
        ASSERT_EQ(Tav0FSRIsBaseOnKey(ref.get(), nullptr, base.get()), expected.has_value())
            << Narrow(path) << " under " << Narrow(folder) << ", seed " << seed;
        const Exp e(Tav0FSExpCreateAbsOnKey(ref.get(), "home", base.get()));
        ASSERT_EQ(TextOf(e), expected.value_or(u"(null)"))
            << Narrow(path) << " under " << Narrow(folder) << ", seed " << seed;
        under += expected.has_value();
    }
    EXPECT_GT(under, 1000u);
}
