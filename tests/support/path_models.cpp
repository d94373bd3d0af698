#include "support/path_models.h"

#include <algorithm>

namespace path_models {

namespace {

bool IsClosed(const Text& path) {
    return !path.empty() && path.back() == u'/';
}

Text Parent(const Text& path) {
    const Text own = Stripped(path), name = Name(path);
    if (own == u"/") return u"/..";
    const Text front = own.substr(0, own.size() - name.size());
    if (name == u"..") return own + u"/..";
    if (name == u".") return front + u"..";
    if (front.empty() || front == u"./") return u"";
    return front == u"/" ? front : front.substr(0, front.size() - 1);
}

Text Folded(Text text) {
    for (auto& unit : text) unit = tav_towlower(unit);
    return text;
}

bool IsAbsolute(const Text& path) {
    return !path.empty() && (path[0] == u'/' || path[0] == u'~');
}

bool EndsComponent(const Text& path, size_t n) {
    return n == path.size() || path[n] == u'/';
}

} // namespace

Text Stripped(Text path) {
    while (path.size() > 1 && path.back() == u'/') path.pop_back();
    return path;
}

Text Name(const Text& path) {
    const Text own = Stripped(path);
    if (own == u"/") return own;
    Text name;
    for (const TavChar unit : own) {
        if (unit == u'/')
            name.clear();
        else
            name += unit;
    }
    return name;
}

Text Extension(const Text& path) {
    const Text name = Name(path);
    Text base = name;
    while (!base.empty() && base.back() != u'.') base.pop_back();
    if (base.empty() || base.size() == name.size()) return u"";
    const Text extension = name.substr(base.size() - 1);
    base.pop_back();
    const bool onlyDots = base.find_first_not_of(u'.') == Text::npos;
    return onlyDots ? u"" : extension;
}

Text Appended(const Text& path, const Text& more) {
    const size_t slashes = std::min(more.find_first_not_of(u'/'), more.size());
    return path + (IsClosed(path) ? u"" : u"/") + more.substr(slashes);
}

Text FileSpecRemoved(const Text& path) {
    if (path.empty()) return path;
    return IsClosed(path) ? path.substr(0, path.size() - 1) : Parent(path);
}

Text ExtensionRemoved(const Text& path) {
    const Text own = Stripped(path);
    return own.substr(0, own.size() - Extension(path).size());
}

Text SlashAdded(const Text& path) {
    return path.empty() || IsClosed(path) ? path : path + u"/";
}

Text SlashRemoved(const Text& path) {
    return path.size() > 1 && IsClosed(path) ? path.substr(0, path.size() - 1) : path;
}

size_t ExtensionAt(const Text& path) {
    const Text extension = Extension(path);
    const bool isBarred = extension.find_first_of(u" \u200E") != Text::npos;
    return path.size() - (isBarred ? 0 : extension.size());
}

size_t FileNameAt(const Text& path) {
    return path.size() - Name(path).size();
}

// Tries every length, longest first.
Text Common(const Text& path1, const Text& path2) {
    if (IsAbsolute(path1) != IsAbsolute(path2)) return u"";
    for (size_t n = std::min(path1.size(), path2.size()); n > 0; --n) {
        const Text front = path1.substr(0, n);
        if (Folded(front) != Folded(path2.substr(0, n))) continue;
        if (!EndsComponent(path1, n) || !EndsComponent(path2, n)) continue;
        return front.back() == u'/' ? front : front + u"/";
    }
    return path1.substr(0, 1) == u"/" && path2.substr(0, 1) == u"/" ? u"/" : u"";
}

} // namespace path_models
