#include "vpath/evaluate.h"

#include "support/files.h"
#include "support/virtual_paths.h"
#include "vpath/expressions.h"

#include <array>
#include <gtest/gtest.h>

namespace {

void RegisterValue(const std::string& name, const std::u16string& value) {
    const MyStr16 field = NameOf(name);
    Tav0FSValRegister(&field, value.c_str());
}

void RegisterKey(const std::string& characters, const std::string& folder) {
    const TavKey key = KeyOf(characters);
    const FSRef ref = PlatformRef(folder);
    Tav0TranPathRegister(&key, &ref);
}

// A step's input and output positions.
struct Step {
    explicit Step(const std::u16string& input, const std::u16string& written = u"") : text(input) {
        p = text.data();
        end = p + text.size();
        w = std::copy(written.begin(), written.end(), buffer.data());
    }
    std::u16string Output() const { return {buffer.data(), static_cast<size_t>(w - buffer.data())}; }
    std::u16string Rest() const { return {p, static_cast<size_t>(end - p)}; }
    int32_t Normal() { return TryCopyAsNormalSeg(&p, end, &w, buffer.data()); }
    int32_t Variable() { return TryCopyAsVariable(&p, end, &w, buffer.data()); }

    std::u16string text;
    std::array<TavChar, kEvaluationUnits> buffer;
    const TavChar* p;
    const TavChar* end;
    TavChar* w;
};

} // namespace

struct KeyCase {
    const TavChar* text;
    uint32_t key;
    size_t taken;
};

class ParsedKey : public testing::TestWithParam<KeyCase> {};

TEST_P(ParsedKey, IsAsListed) {
    const TavChar* p = GetParam().text;
    EXPECT_EQ(static_cast<uint32_t>(ParseKey(&p)), GetParam().key);
    EXPECT_EQ(static_cast<size_t>(p - GetParam().text), GetParam().taken);
}

INSTANTIATE_TEST_SUITE_P(Table, ParsedKey,
                         testing::Values(KeyCase{u"$pref", 0x70726566, 5}, KeyCase{u"$prefs", 0x70726566, 5},
                                         KeyCase{u"$ab\\cd", 0x61620000, 3}, KeyCase{u"$a", 0x61000000, 2},
                                         KeyCase{u"$", 0, 1}, KeyCase{u"$\\x", 0, 1}, KeyCase{u"pref", 0, 0},
                                         KeyCase{u"", 0, 0}, KeyCase{u"$\xFF80\x0141/b", 0x80412F62, 5}));

TEST(NextSegment, MovesBehindTheSeparator) {
    Step step(u"ab\\c\\d");
    EXPECT_EQ(NextSegment(&step.p, step.end), 0);
    EXPECT_EQ(step.Rest(), u"c\\d");
    EXPECT_EQ(NextSegment(&step.p, step.end), 0);
    EXPECT_EQ(step.Rest(), u"d");
    EXPECT_EQ(NextSegment(&step.p, step.end), 1);
    EXPECT_EQ(step.Rest(), u"d");
}

TEST(NextSegment, StaysOnAZeroUnit) {
    Step step(std::u16string(u"a\0\\b", 4));
    EXPECT_EQ(NextSegment(&step.p, step.end), 1);
    EXPECT_EQ(step.p, step.text.data() + 1);
}

TEST(NextSegment, StopsAtTheEndOfTheSeparatorLastOfAll) {
    Step step(u"a\\");
    EXPECT_EQ(NextSegment(&step.p, step.end), 0);
    EXPECT_EQ(step.p, step.end);
    EXPECT_EQ(NextSegment(&step.p, step.end), 1);
}

TEST(NormalSegment, IsCopiedUpToTheSeparator) {
    Step step(u"a/b%$\\c");
    EXPECT_EQ(step.Normal(), 1);
    EXPECT_EQ(step.Output(), u"a/b%$");
    EXPECT_EQ(step.Rest(), u"\\c");
}

TEST(NormalSegment, GetsASlashInFrontUnlessThereIsOneOrNothing) {
    for (const auto& [before, after] :
         {std::pair{u"", u"x"}, {u"/a", u"/a/x"}, {u"/a/", u"/a/x"}, {u"/", u"/x"}}) {
        Step step(u"x", before);
        EXPECT_EQ(step.Normal(), 1);
        EXPECT_EQ(step.Output(), after);
    }
}

TEST(NormalSegment, AddsOnlyASlashWhenEmpty) {
    Step step(u"\\x", u"/a");
    EXPECT_EQ(step.Normal(), 1);
    EXPECT_EQ(step.Output(), u"/a/");
    EXPECT_EQ(step.Normal(), 1);
    EXPECT_EQ(step.Output(), u"/a/");
}

TEST(NormalSegment, EndsAtAZeroUnit) {
    Step step(std::u16string(u"ab\0c", 4));
    EXPECT_EQ(step.Normal(), 1);
    EXPECT_EQ(step.Output(), u"ab");
}

TEST(NormalSegment, IsNoneAtTheEndOrAtAVariable) {
    for (const TavChar* text : {u"", u"%v"}) {
        Step step(text, u"/a");
        EXPECT_EQ(step.Normal(), 0);
        EXPECT_EQ(step.Output(), u"/a");
        EXPECT_EQ(step.Rest(), text);
    }
}

struct VariableCase {
    const TavChar* value;
    const TavChar* before;
    const TavChar* after;
};

class Variable : public testing::TestWithParam<VariableCase> {};

TEST_P(Variable, IsSplicedIn) {
    RegisterValue("v", GetParam().value);
    Step step(u"%v\\rest", GetParam().before);
    EXPECT_EQ(step.Variable(), 1);
    EXPECT_EQ(step.Output(), GetParam().after);
    EXPECT_EQ(step.Rest(), u"\\rest");
}

INSTANTIATE_TEST_SUITE_P(
    Table, Variable,
    testing::Values(VariableCase{u"q", u"", u"q"}, VariableCase{u"q", u"/a", u"/a/q"},
                    VariableCase{u"\\q\\r", u"/a", u"/a/q/r"}, VariableCase{u"\\\\\\q", u"/a/", u"/a/q"},
                    VariableCase{u"q/r", u"/a", u"/a/q/r"}, VariableCase{u"/q", u"", u"/q"},
                    VariableCase{u"", u"/a", u"/a/"}, VariableCase{u"\\", u"/a", u"/a/"},
                    VariableCase{u"q\\", u"/a", u"/a/q"}, VariableCase{u"q\\\\r", u"/a", u"/a/q/r"},
                    VariableCase{u"%w", u"/a", u"/a/"}, VariableCase{u"q\\%w\\r", u"/a", u"/a/q/r"},
                    VariableCase{u"$key", u"/a", u"/a/$key"}));

TEST(Variable, DropsAVariableInsideAValue) {
    RegisterValue("w", u"inner");
    RegisterValue("v", u"q\\%w\\r");
    Step step(u"%v", u"/a");
    EXPECT_EQ(step.Variable(), 1);
    EXPECT_EQ(step.Output(), u"/a/q/r");
}

TEST(Variable, LeavesASlashWhenUnknown) {
    Step step(u"%none\\rest", u"/a");
    EXPECT_EQ(step.Variable(), 0);
    EXPECT_EQ(step.Output(), u"/a/");
    EXPECT_EQ(step.Rest(), u"\\rest");
}

TEST(Variable, IsNoneAtTheEndOrAtPlainText) {
    for (const TavChar* text : {u"", u"v"}) {
        Step step(text, u"/a");
        EXPECT_EQ(step.Variable(), 0);
        EXPECT_EQ(step.Output(), u"/a");
        EXPECT_EQ(step.Rest(), text);
    }
}

TEST(Variable, IsNamedByLowBytes) {
    RegisterValue("A\xe9", u"q");
    Step step(u"%\x0141\xFFE9");
    EXPECT_EQ(step.Variable(), 1);
    EXPECT_EQ(step.Output(), u"q");
}

TEST(Variable, IsNotMatchedByTheFirst15Bytes) {
    RegisterValue("fifteen-bytes-x", u"q");
    EXPECT_EQ(Evaluated(u"M\\/a\\%fifteen-bytes-x"), u"/a/q");
    EXPECT_EQ(Evaluated(u"M\\/a\\%fifteen-bytes-xy"), u"/a/");
}

TEST(Variable, MayHaveAnyUnknownNameThatFits) {
    EXPECT_EQ(Evaluated(u"M\\/a\\%" + std::u16string(16, u'n') + u"\\b"), u"/a/b");
    EXPECT_EQ(Evaluated(u"M\\/a\\%" + std::u16string(254, u'n') + u"\\b"), u"/a/b");
    EXPECT_EQ(Evaluated(u"M\\/a\\%" + std::u16string(255, u'n') + u"\\b"), u"/a/b");
    EXPECT_EQ(Evaluated(u"M\\/a\\%" + std::u16string(256, u'n') + u"\\b"), u"(null)");
    EXPECT_EQ(Evaluated(u"M\\/a\\%" + std::u16string(3000, u'n')), u"(null)");
}

TEST(Variable, MayHaveAnEmptyName) {
    EXPECT_EQ(Evaluated(u"M\\/a\\%\\b"), u"/a/b");
    RegisterValue("", u"q");
    EXPECT_EQ(Evaluated(u"M\\/a\\%\\b"), u"/a/q/b");
}

TEST(CopyPath, LeavesThePositionOnTheTerminator) {
    TavChar buffer[8] = u"*******";
    TavChar* w = buffer;
    _CopyPath(w, u"/ab");
    EXPECT_EQ(w, buffer + 3);
    EXPECT_EQ(std::u16string(buffer), u"/ab");
}

struct EvaluationCase {
    const TavChar* expression;
    const TavChar* path;
};

class AbsoluteRoot : public testing::TestWithParam<EvaluationCase> {};

TEST_P(AbsoluteRoot, IsSkipped) {
    EXPECT_EQ(Evaluated(GetParam().expression), GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(
    Table, AbsoluteRoot,
    testing::Values(EvaluationCase{u"M\\/a/b\\c", u"/a/b/c"}, EvaluationCase{u"M\\/", u"/"},
                    EvaluationCase{u"anything\\/a", u"/a"}, EvaluationCase{u"\\/a", u"/a"},
                    EvaluationCase{u"M\\a\\b", u"a/b"}, EvaluationCase{u"M\\", u""},
                    EvaluationCase{u"M\\/a\\\\b", u"/a/b"}, EvaluationCase{u"M\\/a\\", u"/a"},
                    EvaluationCase{u"M\\/a/\\b", u"/a/b"}, EvaluationCase{u"M\\/a\\/b", u"/a//b"},
                    EvaluationCase{u"M\\/a\\..\\b", u"/b"}, EvaluationCase{u"M\\/a\\$b", u"/a/$b"},
                    EvaluationCase{u"M\\\\/a", u"/a"}, EvaluationCase{u"%v\\/a", u"/a"},
                    EvaluationCase{u"M", u"(null)"}, EvaluationCase{u"", u"(null)"},
                    EvaluationCase{u"M\\/a\\.x", u"(null)"}, EvaluationCase{u"M\\/a:b", u"(null)"},
                    EvaluationCase{u"M\\/..", u"(null)"}));

TEST(KeyRoot, IsReplacedByItsFolder) {
    const TemporaryFolder folder;
    const std::u16string path = Wide(folder.path());
    RegisterKey("pref", folder.path());
    EXPECT_EQ(Evaluated(u"$pref"), path);
    EXPECT_EQ(Evaluated(u"$pref\\x/y"), path + u"/x/y");
    EXPECT_EQ(Evaluated(u"$pref\\..\\y"), Wide(folder.path().parent_path() / "y"));
    EXPECT_EQ(Evaluated(u"$pref\\x\\%v\\y"), path + u"/x/y");
    RegisterValue("v", u"\\q\\r");
    EXPECT_EQ(Evaluated(u"$pref\\x\\%v\\y"), path + u"/x/q/r/y");
}

TEST(KeyRoot, IgnoresCharactersBeyondTheFourth) {
    const TemporaryFolder folder;
    RegisterKey("pref", folder.path());
    EXPECT_EQ(Evaluated(u"$prefs\\x"), Wide(folder / "x"));
    EXPECT_EQ(Evaluated(u"$prefs%v/\\x"), Wide(folder / "x"));
}

TEST(KeyRoot, MayHaveFewerCharacters) {
    const TemporaryFolder folder;
    RegisterKey("ab", folder.path());
    EXPECT_EQ(Evaluated(u"$ab\\x"), Wide(folder / "x"));
    EXPECT_EQ(Evaluated(u"$ab"), Wide(folder.path()));
    EXPECT_EQ(Evaluated(u"$abc\\x"), u"x");
}

TEST(KeyRoot, ComesFromTheKeyCreatorToo) {
    const TemporaryFolder folder;
    RegisterKey("\xe9\x80x", folder.path());
    const Exp e(Tav0FSExpCreateTK("\xe9\x80x"));
    Tav0FSExpAppendSeg(e.get(), u"y");
    EXPECT_EQ(PathOf(Ref(Tav0FSExpCalculateFSRCreate(e.get(), nullptr))), Wide(folder / "y"));
}

TEST(KeyRoot, ContributesNothingWhenNotRegistered) {
    EXPECT_EQ(Evaluated(u"$none\\x"), u"x");
    EXPECT_EQ(Evaluated(u"$none\\x\\..\\y"), u"(null)");
    EXPECT_EQ(Evaluated(u"$none"), u"");
}

TEST(KeyRoot, ContributesNothingWhenItsFolderIsGone) {
    {
        const TemporaryFolder folder;
        RegisterKey("gone", folder.path());
    }
    EXPECT_EQ(Evaluated(u"$gone\\x"), u"x");
}

TEST(KeyRoot, ContributesNothingWhenItsFolderHasAPathOfMoreThan1023Bytes) {
    const TemporaryFolder folder;
    const std::string longest = MakeFolderOfBytes(folder.path(), 1023);
    RegisterKey("fits", longest);
    EXPECT_EQ(Evaluated(u"$fits\\x"), Wide(longest + "/x"));
    RegisterKey("long", MakeFolderOfBytes(folder.path(), 1024));
    EXPECT_EQ(Evaluated(u"$long\\x"), u"x");
}

TEST(KeyRoot, ContributesNothingWhenItsFoldersNameIsNotText) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "caf\xE9");
    RegisterKey("bad", folder / "caf\xE9");
    EXPECT_EQ(Evaluated(u"$bad\\x"), u"x");
}

TEST(KeyRoot, FailsWithoutAKey) {
    EXPECT_EQ(Evaluated(u"$"), u"(null)");
    EXPECT_EQ(Evaluated(u"$\\x"), u"(null)");
}

class BaseRoot : public testing::TestWithParam<EvaluationCase> {};

TEST_P(BaseRoot, IsReplacedByTheBase) {
    EXPECT_EQ(Evaluated(GetParam().expression, MakeRef(u"/B").get()), GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(Table, BaseRoot,
                         testing::Values(EvaluationCase{u"$$pref\\x", u"/B/x"},
                                         EvaluationCase{u"$$pref", u"/B"}, EvaluationCase{u"$$", u"/B"},
                                         EvaluationCase{u"$$p\\x", u"/B/x"},
                                         // the third unit after the root is passed over whatever it is
                                         EvaluationCase{u"$$\\x\\y", u"/B/y"},
                                         EvaluationCase{u"$$\\x", u"/B"}, EvaluationCase{u"$$pref\\..", u""},
                                         EvaluationCase{u"$$pref\\..\\..", u"(null)"}));

TEST(BaseRoot, FailsWithoutABase) {
    EXPECT_EQ(Evaluated(u"$$pref\\x"), u"(null)");
}

TEST(BaseRoot, TakesTheBaseAsItIsWritten) {
    EXPECT_EQ(Evaluated(u"$$k\\x", MakeRef(u"/B/").get()), u"/B/x");
    EXPECT_EQ(Evaluated(u"$$k\\x", MakeRef(u"").get()), u"x");
    EXPECT_EQ(Evaluated(u"$$k\\x", MakeRef(u"/a/.b").get()), u"(null)");
}

TEST(Evaluation, GivesNullForNullAndWithoutStorage) {
    EXPECT_EQ(Tav0FSExpCalculateFSRCreate(nullptr, nullptr), nullptr);
    const OpacTavFSExp bare;
    EXPECT_EQ(Tav0FSExpCalculateFSRCreate(&bare, nullptr), nullptr);
}

TEST(Evaluation, GivesTheCachedReference) {
    const Ref ref = MakeRef(u"/a/b");
    const Ref same(Tav0FSExpCalculateFSRCreate(MakeExp(u"M\\/a\\b").get(), nullptr));
    EXPECT_EQ(same, ref);
    EXPECT_EQ(Tav0FSRRetain(ref.get()), 2u);
    Tav0FSRRelease(ref.get());
}

TEST(Evaluation, LeavesTheExpressionAsItWas) {
    const Exp e = MakeExp(u"M\\/a\\..\\%none\\b");
    const Ref ref(Tav0FSExpCalculateFSRCreate(e.get(), nullptr));
    EXPECT_EQ(PathOf(ref), u"/b");
    EXPECT_EQ(TextOf(e), u"M\\/a\\..\\%none\\b");
}

TEST(Evaluation, Holds2047Units) {
    const std::u16string longest = u"/" + std::u16string(2046, u'a');
    EXPECT_EQ(Evaluated(u"M\\" + longest), longest);
    EXPECT_EQ(Evaluated(u"M\\" + longest + u"a"), u"(null)");
    EXPECT_EQ(Evaluated(u"M\\" + std::u16string(100000, u'a')), u"(null)");
}

TEST(Evaluation, HoldsNoSlashBeyond2047Units) {
    const std::u16string full = u"/" + std::u16string(2046, u'a');
    EXPECT_EQ(Evaluated(u"M\\" + full + u"\\"), full);
    EXPECT_EQ(Evaluated(u"M\\" + full + u"\\b"), u"(null)");
    EXPECT_EQ(Evaluated(u"M\\" + full + u"\\%none"), u"(null)");
    EXPECT_EQ(Evaluated(u"M\\" + full + u"\\\\b"), u"(null)");
}

TEST(Evaluation, IsNotSavedFromTooLongATextByDots) {
    EXPECT_EQ(Evaluated(u"M\\/x\\" + std::u16string(2045, u'a') + u"\\.."), u"(null)");
    EXPECT_EQ(Evaluated(u"M\\/x\\" + std::u16string(2041, u'a') + u"\\.."), u"/x");
}

TEST(Evaluation, LimitsSplicedValuesToo) {
    RegisterValue("v", std::u16string(1000, u'a') + u"\\" + std::u16string(1000, u'b'));
    EXPECT_EQ(Evaluated(u"M\\/\\%v\\" + std::u16string(44, u'c')).size(), 2047u);
    EXPECT_EQ(Evaluated(u"M\\/\\%v\\" + std::u16string(45, u'c')), u"(null)");
    EXPECT_EQ(Evaluated(u"M\\/\\%v\\%v"), u"(null)");
}

TEST(Evaluation, TakesABaseOf2047UnitsAtMost) {
    const std::u16string longest = u"/" + std::u16string(2046, u'a');
    EXPECT_EQ(Evaluated(u"$$k", MakeRef(longest).get()), longest);
    EXPECT_EQ(Evaluated(u"$$k", MakeRef(longest + u"a").get()), u"(null)");
}
