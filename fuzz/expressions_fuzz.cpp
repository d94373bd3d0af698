// Expressions put together, evaluated and expressed again, beside the naive model.
#include "input.h"

#include "support/expression_model.h"
#include "support/virtual_paths.h"

#include <algorithm>
#include <cstring>

namespace {

using Text = ExpressionModel::Text;

const ExpressionModel& Model() {
    static const ExpressionModel model = [] {
        ExpressionModel m;
        for (const auto& [key, folder] : {std::pair{"key", "/usr"}, {"k", "/"}, {"\xE9", "/tmp"}}) {
            const TavKey inMemory = KeyOf(key);
            const FSRef ref = PlatformRef(folder);
            Expect(Tav0TranPathRegister(&inMemory, &ref) != nullptr);
            m.folders[key] = Text(folder, folder + strlen(folder));
        }
        for (const auto& [name, value] :
             {std::pair{"one", u"\\\\q\\%two\\r\\\\s\\"}, {"two", u"/t/.."}, {"\xC3\xA9", u""}}) {
            const MyStr16 field = NameOf(name);
            Expect(Tav0FSValRegister(&field, value) != nullptr);
            m.values[name] = value;
        }
        return m;
    }();
    return model;
}

// The longest text of a reference or an expression.
bool Fits(const Text& text) {
    return text.size() < size_t{1} << 16;
}

// Up to four characters, with zeros behind them.
std::string Key(Input& input) {
    std::string key = input.Name().substr(0, 4);
    key.resize(4);
    return key;
}

void ExpectName(const Exp& e, const Text& text) {
    const size_t end = text.find(u'\\', std::min<size_t>(2, text.size()));
    const bool isRelative = text.substr(0, 2) == u"$$";
    TavChar name[8];
    uint32_t units = std::size(name);
    Expect(Tav0FSExpIsRelPath(e.get(), name, &units) == isRelative);
    if (!isRelative) return;
    const size_t length = end == Text::npos || end - 2 >= std::size(name) ? 0 : end - 2;
    Expect(units == length && (length == 0 || text.compare(2, length, name) == 0));
}

// The same path under a folder, and back from there.
void ExpectExpressed(const Ref& ref, const Text& path, Input& input) {
    // Most often a front part of the path in some letter case.
    Text folder = input.Byte() % 4 == 0 ? input.Text() : path.substr(0, input.Byte());
    if (input.Byte() % 2 != 0) tav_wcsupr(folder.data());
    const std::string key = Key(input);
    const Ref base = MakeRef(folder);
    const std::optional<Text> expected = ExpressionModel::Express(path, key.c_str(), folder);
    Expect(Tav0FSRIsBaseOnKey(ref.get(), nullptr, base.get()) == expected.has_value());
    const Exp e(Tav0FSExpCreateAbsOnKey(ref.get(), key.data(), base.get()));
    Expect(TextOf(e) == expected.value_or(u"(null)"));
    if (!e) return;
    const Ref again(Tav0FSExpCalculateFSRCreate(e.get(), base.get()));
    Expect(PathOf(again) == Model().Evaluate(*expected, &folder).value_or(u"(null)"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ExpressionModel& model = Model();
    Input input(data, size);
    const Text base = input.Text();
    Text text = input.Text();
    Exp e = MakeExp(text);
    if (text.empty()) {
        const std::string key = Key(input);
        e.reset(Tav0FSExpCreateTK(key.data()));
        text = TextOf(e);
        Expect(text[0] == u'$' && text.size() == 1 + strlen(key.c_str()));
    }
    for (uint8_t step = input.Byte() % 3; step != 0 && Fits(text); step = input.Byte() % 3) {
        if (step == 1) {
            const Text segment = input.Text();
            Expect(Tav0FSExpAppendSeg(e.get(), segment.c_str()));
            text = ExpressionModel::WithSegment(text, segment);
        } else {
            const std::string name = input.Name();
            Expect(Tav0FSExpAppendVal(e.get(), name.c_str()));
            text = ExpressionModel::WithValue(text, name);
        }
    }
    Expect(TextOf(e) == text);
    ExpectName(e, text);

    const bool hasBase = !base.empty();
    const Ref baseRef = hasBase ? MakeRef(base) : nullptr;
    const std::optional<Text> path = model.Evaluate(text, hasBase ? &base : nullptr);
    const Ref ref(Tav0FSExpCalculateFSRCreate(e.get(), baseRef.get()));
    Expect(PathOf(ref) == path.value_or(u"(null)"));
    if (ref) ExpectExpressed(ref, *path, input);
    return 0;
}
