// Where formatted text goes: the units of a growing string, in fields of a given width.
#pragma once

#include "platform/linux/string_object.h"

#include <string_view>

namespace format {

// A piece of text that a conversion made, and how it stands in its field.
struct Field {
    size_t width = 0;
    bool left = false;
    bool zeroFilled = false; // zeros behind the prefix instead of spaces in front
};

class Output {
public:
    explicit Output(size_t room) : string_(strings::Allocate(room, true)) {}
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // False once memory has run out; nothing is added from then on.
    bool ok() const { return string_ != nullptr; }

    void Append(const UniChar* units, size_t n);
    void Append(std::string_view ascii);
    void AppendFill(UniChar unit, size_t n);

    // A number: `prefix` and `digits` in ASCII, with `zeros` between them.
    void AppendNumber(const Field& field, std::string_view prefix, size_t zeros, std::string_view digits);

    // 16-bit text, or Mac Roman bytes, in a field of spaces.
    void AppendUnits(const Field& field, const UniChar* units, size_t n);
    void AppendMacRoman(const Field& field, const char* bytes, size_t n);

    // Memory for `n` bytes of ASCII at the end of the text, null when there is none; Commit makes the first
    // `used` of them part of the text. Nothing may be added in between.
    char* Borrow(size_t n);
    void Commit(size_t used);

    // How many units are not ASCII.
    size_t CountBeyondAscii() const;

    // Gives the text up: there is no result.
    void Fail();

    // The text, as a string that nobody changes; null when memory has run out.
    CFStringRef Finish();

private:
    // Room for `n` more units; null, for good, when there is none.
    UniChar* Extend(size_t n) {
        if (string_ && n > string_->capacity - string_->length) Grow(n);
        if (!string_) return nullptr;
        UniChar* place = string_->units + string_->length;
        string_->length += n;
        return place;
    }

    // Makes that room, or gives the text up.
    void Grow(size_t n);

    OpaqueCFString* string_;
};

} // namespace format
