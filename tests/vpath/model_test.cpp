// Evaluation, canonicalisation and re-expression against a model that takes paths apart into lists.
#include "support/files.h"
#include "support/virtual_paths.h"
#include "vpath/canonicalize.h"

#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <random>
#include <vector>

namespace {

using Text = std::u16string;

std::vector<Text> SplitAt(const Text& text, TavChar separator) {
    std::vector<Text> parts(1);
    for (const TavChar unit : text) {
        if (unit == separator) {
            parts.emplace_back();
        } else {
            parts.back() += unit;
        }
    }
    return parts;
}

bool AllDots(const Text& text) {
    return !text.empty() && text.find_first_not_of(u'.') == Text::npos;
}

// One part in front of the first "/", then each with its own "/".
std::optional<Text> ModelCanonical(const Text& path) {
    const size_t colon = path.find(u':');
    if (colon != Text::npos && colon != 1) return std::nullopt;
    if (path.find(u':', 2) != Text::npos) return std::nullopt;

    const std::vector<Text> parts = SplitAt(path, u'/');
    Text front = parts[0];
    // Behind a drive letter's colon dots count as at the start of a segment, and nothing is there to delete.
    if (colon == 1 && front.size() > 2 && front[2] == u'.') return std::nullopt;
    std::vector<Text> kept;
    for (size_t i = 1; i < parts.size(); ++i) {
        Text name = parts[i];
        if (path.size() > 1 && i == 1 && front.empty() && !name.empty() && name[0] == u':') {
            if (name.size() > 1 && name[1] == u'.') {
                // The colon is the second unit; the dots behind it stand for a whole segment.
                name = name.substr(1);
            }
        }
        if (kept.size() + 1 > 512) return std::nullopt;
        if (!name.empty() && name[0] == u'.') {
            if (!AllDots(name)) return std::nullopt;
            const size_t climbs = name.size() - 1;
            if (climbs > kept.size()) return std::nullopt;
            kept.resize(kept.size() - climbs);
        } else {
            kept.push_back(parts[i]);
        }
    }
    Text result = front;
    for (const Text& name : kept) result += u"/" + name;
    return result;
}

struct Model {
    std::map<std::string, Text> values;
    std::map<std::string, Text> keys;

    static void Join(Text& path, const Text& segment) {
        Slash(path);
        path += segment;
    }
    static void Slash(Text& path) {
        if (!path.empty() && path.back() != u'/') path += u'/';
    }

    void AppendVariable(Text& path, const Text& name) const {
        Slash(path);
        const auto value = values.find(Narrow(name));
        if (value == values.end()) return;
        const size_t start = std::min(value->second.find_first_not_of(u'\\'), value->second.size());
        const std::vector<Text> parts = SplitAt(value->second.substr(start), u'\\');
        for (size_t i = 0; i < parts.size(); ++i) {
            const bool atEnd = i + 1 == parts.size() && parts[i].empty();
            if (!atEnd && (parts[i].empty() || parts[i][0] != u'%')) Join(path, parts[i]);
        }
    }

    std::optional<Text> Evaluate(const Text& expression, const Text* base) const {
        std::vector<Text> segments = SplitAt(expression, u'\\');
        const Text root = segments[0];
        Text path;
        if (root.substr(0, 2) == u"$$") {
            if (!base) return std::nullopt;
            path = *base;
            // The third unit is passed over: a "\" there joins the first segment to the root.
            if (root.size() == 2 && segments.size() > 1) segments.erase(segments.begin());
        } else if (root.substr(0, 1) == u"$") {
            if (root.size() == 1) return std::nullopt;
            const auto key = keys.find(Narrow(root.substr(1, 4)));
            if (key != keys.end()) path = key->second;
        } else if (segments.size() == 1) {
            return std::nullopt;
        }
        for (size_t i = 1; i < segments.size(); ++i) {
            const bool atEnd = i + 1 == segments.size() && segments[i].empty();
            if (atEnd) break;
            if (segments[i][0] == u'%') {
                AppendVariable(path, segments[i].substr(1));
            } else {
                Join(path, segments[i]);
            }
        }
        return ModelCanonical(path);
    }
};

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
        const std::optional<Text> expected = ModelCanonical(path);
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
    Model model;
    for (const char* characters : {"key", "k"}) {
        const TavKey key = KeyOf(characters);
        const FSRef ref = PlatformRef(folder.path());
        Tav0TranPathRegister(&key, &ref);
        model.keys[characters] = Wide(folder.path());
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
        const Text lower = Wide([&] {
            std::string text = Narrow(path.substr(0, folder.size()) + u"|" + folder);
            for (char& c : text) c = static_cast<char>(tolower(c));
            return text;
        }());
        const bool same = path.size() >= folder.size() &&
                          lower == lower.substr(folder.size() + 1) + u"|" + lower.substr(folder.size() + 1);
        const bool expected = same && (path.size() == folder.size() || path[folder.size()] == u'/');
        const Ref ref = MakeRef(path);
        const Ref base = MakeRef(folder);
        ASSERT_EQ(Tav0FSRIsBaseOnKey(ref.get(), nullptr, base.get()), expected)
            << Narrow(path) << " under " << Narrow(folder) << ", seed " << seed;
        const Exp e(Tav0FSExpCreateAbsOnKey(ref.get(), "home", base.get()));
        ASSERT_EQ(e != nullptr, expected);
        if (!e) continue;
        ++under;
        // What follows the folder, by segments.
        Text rest = u"$$home";
        if (path.size() > folder.size() + 1) {
            for (const Text& name : SplitAt(path.substr(folder.size() + 1), u'/')) rest += u"\\" + name;
        }
        ASSERT_EQ(TextOf(e), rest) << Narrow(path) << " under " << Narrow(folder) << ", seed " << seed;
    }
    EXPECT_GT(under, 1000u);
}
