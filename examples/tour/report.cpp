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

void Heading(const std::string& text) {
    std::printf("\n%s\n", text.c_str());
}

void Step(const std::string& what, const std::string& outcome) {
    ++steps;
    std::printf("  %-50s %s\n", what.c_str(), outcome.c_str());
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
