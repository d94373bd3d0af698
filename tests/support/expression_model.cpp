#include "support/expression_model.h"

#include <algorithm>

using Text = ExpressionModel::Text;

namespace {

constexpr size_t kMostUnits = 2047;     // of a path that is being put together
constexpr size_t kMostPathUnits = 1023; // of a path that is expressed
constexpr size_t kMostSeparators = 512;
constexpr size_t kMostNameBytes = 255;
constexpr size_t kLongestValueName = 15;
constexpr size_t kKeyBytes = 4;

bool AllDots(const Text& text) {
    return !text.empty() && text.find_first_not_of(u'.') == Text::npos;
}

void Slash(Text& path) {
    if (!path.empty() && path.back() != u'/') path += u'/';
}

void Join(Text& path, const Text& segment) {
    Slash(path);
    path += segment;
}

// The low byte of each unit.
std::string Bytes(const Text& text) {
    std::string bytes;
    for (const TavChar unit : text) bytes += static_cast<char>(unit & 0xFF);
    return bytes;
}

// A byte of a name or a key, as expressions hold it.
TavChar Unit(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return static_cast<TavChar>(value < 0x80 ? value : 0xFF00 + value);
}

} // namespace

std::vector<Text> ExpressionModel::SplitAt(const Text& text, TavChar separator) {
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

// One part in front of the first "/", then each with its own "/".
std::optional<Text> ExpressionModel::Canonical(const Text& path) {
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
        // Where the colon is the second unit, the dots behind it stand for a whole segment.
        if (i == 1 && front.empty() && name.size() > 1 && name[0] == u':' && name[1] == u'.')
            name = name.substr(1);
        // The separators in front of those kept and the one behind this name.
        if (1 + kept.size() >= kMostSeparators) return std::nullopt;
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

Text ExpressionModel::WithSegment(Text expression, Text segment) {
    if (!expression.empty() && expression.back() == u'\\') expression.pop_back();
    if (segment.substr(0, 1) == u"\\") segment.erase(0, 1);
    std::replace(segment.begin(), segment.end(), u'/', u'\\');
    return expression + u'\\' + segment;
}

Text ExpressionModel::WithValue(const Text& expression, const std::string& name) {
    Text longer = WithSegment(expression, u"%");
    for (const char byte : name) longer += Unit(byte);
    return longer;
}

void ExpressionModel::AppendVariable(Text& path, const Text& name) const {
    Slash(path);
    // A byte of zero ends the name.
    const std::string bytes = Bytes(name).c_str();
    const auto value = bytes.size() <= kLongestValueName ? values.find(bytes) : values.end();
    if (value == values.end()) return;
    const size_t start = std::min(value->second.find_first_not_of(u'\\'), value->second.size());
    const std::vector<Text> parts = SplitAt(value->second.substr(start), u'\\');
    for (size_t i = 0; i < parts.size(); ++i) {
        const bool atEnd = i + 1 == parts.size() && parts[i].empty();
        if (!atEnd && (parts[i].empty() || parts[i][0] != u'%')) Join(path, parts[i]);
    }
}

// The path before it is canonicalised.
std::optional<Text> ExpressionModel::Collect(const Text& expression, const Text* base) const {
    std::vector<Text> segments = SplitAt(expression, u'\\');
    const Text root = segments[0];
    Text path;
    if (root.substr(0, 2) == u"$$") {
        if (!base) return std::nullopt;
        path = *base;
        // The third unit is passed over: a "\" there joins the first segment to the root.
        if (root.size() == 2 && segments.size() > 1) segments.erase(segments.begin());
    } else if (root.substr(0, 1) == u"$") {
        std::string key = Bytes(root.substr(1, kKeyBytes));
        key.resize(key.find_last_not_of('\0') + 1);
        if (key.empty()) return std::nullopt;
        const auto folder = folders.find(key);
        if (folder != folders.end()) path = folder->second;
    } else if (segments.size() == 1) {
        return std::nullopt;
    }
    for (size_t i = 1; i < segments.size(); ++i) {
        const bool atEnd = i + 1 == segments.size() && segments[i].empty();
        if (atEnd) break;
        if (segments[i].substr(0, 1) != u"%") {
            Join(path, segments[i]);
            continue;
        }
        if (segments[i].size() - 1 > kMostNameBytes) return std::nullopt;
        AppendVariable(path, segments[i].substr(1));
    }
    return path;
}

std::optional<Text> ExpressionModel::Evaluate(const Text& expression, const Text* base) const {
    const std::optional<Text> path = Collect(expression, base);
    return path && path->size() <= kMostUnits ? Canonical(*path) : std::nullopt;
}

std::optional<Text> ExpressionModel::Express(const Text& path, const std::string& key, const Text& folder) {
    if (path.size() > kMostPathUnits || folder.size() > path.size()) return std::nullopt;
    const Text front = path.substr(0, folder.size());
    if (tav_wcscmpi(front.c_str(), folder.c_str()) != 0) return std::nullopt;
    const Text rest = path.substr(folder.size());
    if (!rest.empty() && rest[0] != u'/') return std::nullopt;
    Text expression = u"$$";
    for (const char byte : key) expression += Unit(byte);
    return rest.size() > 1 ? WithSegment(expression, rest.substr(1)) : expression;
}
