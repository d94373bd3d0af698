// What the tour prints, and owners for what the library gives.
#pragma once

#include <TavPort.h>

#include <memory>
#include <string>

struct ReleaseExpression {
    void operator()(OpacTavFSExp* e) const { Tav0FSExpRelease(e); }
};
struct ReleaseReference {
    void operator()(OpacTavFSRef* r) const { Tav0FSRRelease(r); }
};
using Expression = std::unique_ptr<OpacTavFSExp, ReleaseExpression>;
using Reference = std::unique_ptr<OpacTavFSRef, ReleaseReference>;

// UTF-8 for printing, and back.
std::string Utf8(const TavChar* text);
std::u16string Utf16(const std::string& text);

std::string TextOf(const Expression& e);
std::string PathOf(const Reference& r);

// The text with spaces behind it up to so many columns of a terminal.
std::string Padded(const std::string& utf8, size_t columns);

// A heading, and one line for each step with what came of it.
void Heading(const std::string& text);
void Step(const std::string& what, const std::string& outcome);

// A step that has one right outcome.
void Check(const std::string& what, bool ok, const std::string& outcome);

// The last line; the exit status.
int Summary();
