#include "report.h"

#include <cstdio>
#include <vector>

static int steps = 0;
static int failures = 0;

std::string Utf8(const TavChar* text) {
    char* utf8 = Tav0UTF8FromUTF16(text);
    const std::string result = utf8 ? utf8 : "(not UTF-16)";
    Tav0UTFRelease(utf8);
    return result;
}

std::u16string Utf16(const std::string& text) {
    TavChar* utf16 = Tav0UTF16FromUTF8(text.c_str());
    std::u16string result;
    for (const TavChar* unit = utf16; unit && *unit; ++unit) result += static_cast<char16_t>(*unit);
    Tav0UTFRelease(utf16);
    return result;
}

std::string TextOf(const Expression& e) {
    const uint32_t units = Tav0FSExpGetExp(e.get(), nullptr, 0);
    if (units == 0) return "(no expression)";
    std::vector<TavChar> text(units);
    Tav0FSExpGetExp(e.get(), text.data(), units);
    return Utf8(text.data());
}

std::string PathOf(const Reference& r) {
    const uint32_t units = Tav0FSRToUTF16(r.get(), nullptr, 0);
    if (units == 0) return "(no path)";
    std::vector<TavChar> path(units);
    Tav0FSRToUTF16(r.get(), path.data(), units);
    return Utf8(path.data());
}

// Chinese, Japanese and Korean characters take two columns, marks that go onto the character before none.
static size_t ColumnsOf(char32_t character) {
    if (character >= 0x300 && character < 0x370) return 0;
    const bool isWide =
        (character >= 0x1100 && character < 0x1160) || (character >= 0x2E80 && character < 0xA4D0) ||
        (character >= 0xAC00 && character < 0xD7A4) || (character >= 0xF900 && character < 0xFB00) ||
        (character >= 0xFF00 && character < 0xFF61) || character >= 0x1F300;
    return isWide ? 2 : 1;
}

static size_t ColumnsOf(const std::string& utf8) {
    size_t columns = 0;
    const std::u16string units = Utf16(utf8);
    for (size_t i = 0; i < units.size(); ++i) {
        char32_t character = units[i];
        if (character >= 0xD800 && character < 0xDC00 && i + 1 < units.size())
            character = 0x10000 + ((character - 0xD800) << 10) + (units[++i] - 0xDC00u);
        columns += ColumnsOf(character);
    }
    return columns;
}

std::string Padded(const std::string& utf8, size_t columns) {
    const size_t taken = ColumnsOf(utf8);
    return utf8 + std::string(taken < columns ? columns - taken : 0, ' ');
}

void Heading(const std::string& text) {
    std::printf("\n%s\n%s\n", text.c_str(), std::string(ColumnsOf(text), '-').c_str());
}

void Step(const std::string& what, const std::string& outcome) {
    ++steps;
    std::printf("  %s %s\n", Padded(what, 50).c_str(), outcome.c_str());
}

void Check(const std::string& what, bool ok, const std::string& outcome) {
    if (!ok) ++failures;
    Step(what, ok ? outcome : "FAILED");
}

int Summary() {
    if (failures > 0) {
        std::printf("\n%d of %d steps failed.\n", failures, steps);
        return 1;
    }
    std::printf("\nAll %d steps went as they should.\n", steps);
    return 0;
}
