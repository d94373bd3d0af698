// Owners and readers of expressions and references, for tests.
#pragma once

#include "TavPort.h"

#include <memory>
#include <string>

struct ReleaseExpression {
    void operator()(OpacTavFSExp* e) const { Tav0FSExpRelease(e); }
};
using Exp = std::unique_ptr<OpacTavFSExp, ReleaseExpression>;

struct ReleaseReference {
    void operator()(OpacTavFSRef* r) const { Tav0FSRRelease(r); }
};
using Ref = std::unique_ptr<OpacTavFSRef, ReleaseReference>;

// The text of an expression, "(null)" for null.
std::u16string TextOf(const OpacTavFSExp* e);
inline std::u16string TextOf(const Exp& e) {
    return TextOf(e.get());
}

// The path of a reference, "(null)" for null.
std::u16string PathOf(const OpacTavFSRef* r);
inline std::u16string PathOf(const Ref& r) {
    return PathOf(r.get());
}

inline Ref MakeRef(const std::u16string& path) {
    return Ref(Tav0FSRCreateWithPath(path.c_str()));
}
inline Exp MakeExp(const std::u16string& text) {
    return Exp(Tav0FSExpCreateExp(text.c_str()));
}

// The path that an expression evaluates to, "(null)" when it does not.
std::u16string Evaluated(const std::u16string& expression, const OpacTavFSRef* base = nullptr);

// The platform's reference to an existing object; throws when there is none.
FSRef PlatformRef(const std::string& path);

// Makes a folder below `above` whose path has that many bytes, and fewer units; gives the path.
std::string MakeFolderOfBytes(const std::string& above, size_t bytes);

// Four characters as a key in memory, missing ones zero.
TavKey KeyOf(const std::string& characters);

MyStr16 NameOf(const std::string& name);
