// eval: from an expression to a path, step by step.
#include "command.h"

#include "host.h"
#include "text.h"

#include <cstdio>
#include <cstring>

namespace {

struct ReleaseExpression {
    void operator()(OpacTavFSExp* expression) const { Tav0FSExpRelease(expression); }
};
using Expression = std::unique_ptr<OpacTavFSExp, ReleaseExpression>;

void Step(const char* what, const std::string& outcome) {
    std::printf("  %-12s %s\n", what, Shown(outcome).c_str());
}

// "NAME=TEXT" in two; false without "=".
bool Split(const std::string& pair, std::string& name, std::string& text) {
    const size_t equals = pair.find('=');
    if (equals == std::string::npos) return false;
    name = pair.substr(0, equals);
    text = pair.substr(equals + 1);
    return !name.empty();
}

const std::vector<std::string>& Values(const Options& options, char letter) {
    static const std::vector<std::string> none;
    const auto found = options.values.find(letter);
    return found == options.values.end() ? none : found->second;
}

// Each character of a key is one byte.
bool MakeKey(const Text& name, TavKey& key) {
    char bytes[sizeof key] = {};
    if (name.size() > sizeof bytes) return false;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] > 0xff) return false;
        bytes[i] = static_cast<char>(name[i]);
    }
    std::memcpy(&key, bytes, sizeof bytes);
    return true;
}

int RegisterKey(const std::string& pair) {
    std::string name;
    std::string folder;
    TavKey key = 0;
    if (!Split(pair, name, folder) || !MakeKey(Units(name), key)) {
        Complain(pair, "is not KEY=FOLDER with a key of one to four characters up to U+00FF");
        return kUsage;
    }
    folder = host::Absolute(folder);
    FSRef found;
    if (!Tav0FSRToAbs(At(folder).get(), &found, 0)) return Complain(folder, host::Reason(folder, false));
    if (!Tav0TranPathRegister(&key, &found)) return Complain(pair, "cannot be registered");
    Step(("key " + name).c_str(), folder);
    return kDone;
}

int RegisterValue(const std::string& pair) {
    std::string name;
    std::string text;
    MyStr16 field = {};
    if (!Split(pair, name, text) || name.size() >= sizeof field.name) {
        Complain(pair, "is not NAME=TEXT with a name of one to fifteen bytes");
        return kUsage;
    }
    std::memcpy(field.name, name.data(), name.size());
    if (!Tav0FSValRegister(&field, Units(text).c_str())) return Complain(pair, "cannot be registered");
    Step(("value " + name).c_str(), text);
    return kDone;
}

std::string PathOf(const Reference& reference) {
    Text path(Tav0FSRToUTF16(reference.get(), nullptr, 0), 0);
    Tav0FSRToUTF16(reference.get(), path.data(), static_cast<uint32_t>(path.size()));
    return Bytes(path);
}

Reference Calculate(const std::string& text, const Reference& base) {
    const Expression expression(Tav0FSExpCreateExp(Units(text).c_str()));
    return Reference(Tav0FSExpCalculateFSRCreate(expression.get(), base.get()));
}

// The path of each beginning of the expression, so that one sees which part makes what of it.
void ShowSteps(const std::string& text, const Reference& base) {
    const size_t last = text.rfind('\\');
    if (last == std::string::npos) return;
    const size_t width = Shown(text.substr(0, last)).size();
    for (size_t end = text.find('\\'); end != std::string::npos; end = text.find('\\', end + 1)) {
        std::string part = Shown(text.substr(0, end));
        const Reference reference = Calculate(text.substr(0, end), base);
        if (!reference || PathOf(reference).empty()) continue;
        part.resize(width, ' ');
        Step("step", part + "  " + PathOf(reference));
    }
}

// The key that an expression begins with, where that is not registered; empty for none.
std::string UnknownKey(const std::string& text) {
    const std::string first = text.substr(0, text.find('\\'));
    if (first.size() < 2 || first[0] != '$' || first[1] == '$') return "";
    const Reference reference = Calculate(first, nullptr);
    return reference && PathOf(reference).empty() ? Bytes(Units(first).substr(1, sizeof(TavKey))) : "";
}

int ComplainUnknownKey(const std::string& text, const std::string& key) {
    return Complain(text, "the key $" + key + " is not registered; give it with -k " + key + "=FOLDER");
}

// Why an expression that needs no other base gives no path: by its shortest part that gives none.
std::string Reason(const std::string& text, const Reference& base) {
    if (text[0] != '$') return "begins with no key: \"$KEY\\...\"";
    size_t end = text.find('\\');
    while (end != std::string::npos && Calculate(text.substr(0, end), base)) end = text.find('\\', end + 1);
    const std::string part = text.substr(0, end);
    const std::string last = part.substr(part.rfind('\\') + 1); // all of it without one
    if (last == "$") return "has no key after \"$\"";
    if (last.size() > 1 && last.find_first_not_of('.') == std::string::npos)
        return "leads above where its path begins: " + part;
    if (last[0] == '.') return "a name in a path may not begin with \".\": " + last;
    if (last.find(':') != std::string::npos) return "a path may not have a \":\": " + last;
    return "a name in its path begins with \".\" or has a \":\", or the path is too long: " + part;
}

} // namespace

int Evaluate(const Options& options) {
    for (const std::string& pair : Values(options, 'k')) {
        if (const int result = RegisterKey(pair); result != kDone) return result;
    }
    for (const std::string& pair : Values(options, 'v')) {
        if (const int result = RegisterValue(pair); result != kDone) return result;
    }
    Reference base;
    for (const std::string& folder : Values(options, 'b')) {
        base = At(host::Absolute(folder));
        Step("base", host::Absolute(folder));
    }
    const std::string& text = options.arguments[0];
    Step("expression", text);
    if (const std::string key = UnknownKey(text); !key.empty()) return ComplainUnknownKey(text, key);
    const Reference reference = Calculate(text, base);
    if (reference && PathOf(reference).substr(0, 1) != "/")
        return Complain(text, "gives no path that begins with \"/\"; begin it with a key: \"$KEY\\...\"");
    ShowSteps(text, base);
    if (!reference) {
        const Expression expression(Tav0FSExpCreateExp(Units(text).c_str()));
        const bool needsBase = !base && Tav0FSExpIsRelPath(expression.get(), nullptr, nullptr);
        return Complain(text, needsBase ? "needs a base; give one with -b" : Reason(text, base));
    }
    const std::string path = PathOf(reference);
    Step("path", path);
    const bool folder = TavPathIsDirectory(Units(path).c_str());
    Step("there", !Tav0FSRIsExist(reference.get()) ? "nothing yet" : folder ? "a folder" : "a file");
    return kDone;
}
