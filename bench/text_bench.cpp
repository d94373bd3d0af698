// The wide runtime and UTF conversion beside ICU, GLib and the C and C++ libraries. Rows of one group do the
// same work on the same data: "group/size/who".
#include "TavPort.h"
#include "text/number_parsing.h"

#include <benchmark/benchmark.h>
#include <glib.h>
#include <unicode/ustdio.h>
#include <unicode/ustring.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <functional>
#include <string>
#include <string_view>

namespace {

using Text = std::u16string;

// Registers one row: `work` is called again and again and gives something that the compiler must not drop.
template <typename Work>
void Row(const std::string& name, Work work) {
    benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) {
        for (auto _ : state) {
            auto result = work();
            benchmark::DoNotOptimize(result);
            benchmark::ClobberMemory();
        }
    });
}

std::string Name(const char* group, size_t size, const char* who) {
    return std::string(group) + '/' + std::to_string(size) + '/' + who;
}

Text Letters(size_t length) {
    Text text(length, u'a');
    for (size_t i = 0; i < length; ++i) text[i] = static_cast<char16_t>(u'a' + i * 7 % 26);
    return text;
}

Text OtherCase(Text text) {
    for (auto& unit : text) unit ^= 0x20;
    return text;
}

// The data lives as long as the rows, which is as long as the program.
template <typename T>
const T* Keep(T value) {
    return new T(std::move(value));
}

void Searching(size_t length) {
    const char16_t* s = Keep(Letters(length))->c_str();
    Row(Name("wcslen", length, "TavPort"), [=] { return tav_wcslen(s); });
    Row(Name("wcslen", length, "ICU"), [=] { return u_strlen(s); });
    Row(Name("wcslen", length, "memchr"), [=] { return memchr(s, 1, length * 2); });
    Row(Name("wcschr", length, "TavPort"), [=] { return tav_wcschr(s, u'!'); });
    Row(Name("wcschr", length, "ICU"), [=] { return u_strchr(s, u'!'); });
    Row(Name("wcschr", length, "memchr"), [=] { return memchr(s, 1, length * 2); });
    Row(Name("wcsrchr", length, "TavPort"), [=] { return tav_wcsrchr(s, u'!'); });
    Row(Name("wcsrchr", length, "ICU"), [=] { return u_strrchr(s, u'!'); });
    Row(Name("wcsrchr", length, "memchr"), [=] { return memchr(s, 1, length * 2); });
}

void Comparing(size_t length) {
    const char16_t* a = Keep(Letters(length))->c_str();
    const char16_t* b = Keep(Letters(length))->c_str();
    const auto n = static_cast<int32_t>(length);
    Row(Name("wcscmp", length, "TavPort"), [=] { return tav_wcscmp(a, b); });
    Row(Name("wcscmp", length, "ICU"), [=] { return u_strcmp(a, b); });
    Row(Name("wcscmp", length, "memcmp"), [=] { return memcmp(a, b, length * 2); });
    Row(Name("wcsncmp", length, "TavPort"), [=] { return tav_wcsncmp(a, b, static_cast<uint32_t>(n)); });
    Row(Name("wcsncmp", length, "ICU"), [=] { return u_strncmp(a, b, n); });
    Row(Name("wcsncmp", length, "memcmp"), [=] { return memcmp(a, b, length * 2); });
}

void Copying(size_t length) {
    const char16_t* s = Keep(Letters(length))->c_str();
    char16_t* d = const_cast<char16_t*>(Keep(Text(length * 2 + 1, 0))->c_str());
    Row(Name("wcscpy", length, "TavPort"), [=] { return tav_wcscpy(d, s); });
    Row(Name("wcscpy", length, "ICU"), [=] { return u_strcpy(d, s); });
    Row(Name("wcscpy", length, "memcpy"), [=] { return memcpy(d, s, length * 2 + 2); });
    Row(Name("wcscat", length, "TavPort"), [=] { return *d = 0, tav_wcscat(d, s); });
    Row(Name("wcscat", length, "ICU"), [=] { return *d = 0, u_strcat(d, s); });
    Row(Name("wcscat", length, "memcpy"), [=] { return *d = 0, memcpy(d, s, length * 2 + 2); });
}

void Finding(const char* group, const Text& hay, const Text& needle) {
    const Text* h = Keep(hay);
    const Text* n = Keep(needle);
    Row(Name(group, hay.size(), "TavPort"), [=] { return tav_wcsstr(h->c_str(), n->c_str()); });
    Row(Name(group, hay.size(), "ICU"), [=] { return u_strstr(h->c_str(), n->c_str()); });
    Row(Name(group, hay.size(), "u16string_view"), [=] { return std::u16string_view(*h).find(*n); });
}

void Caseless(const char* group, const Text& left, const Text& right) {
    const char16_t* a = Keep(left)->c_str();
    const char16_t* b = Keep(right)->c_str();
    const auto n = static_cast<int32_t>(left.size());
    Row(Name((std::string("wcscmpi-") + group).c_str(), left.size(), "TavPort"),
        [=] { return tav_wcscmpi(a, b); });
    Row(Name((std::string("wcscmpi-") + group).c_str(), left.size(), "ICU"),
        [=] { return u_strcasecmp(a, b, 0); });
    Row(Name((std::string("wcsnicmp-") + group).c_str(), left.size(), "TavPort"),
        [=] { return tav_wcsnicmp(a, b, static_cast<uint32_t>(n)); });
    Row(Name((std::string("wcsnicmp-") + group).c_str(), left.size(), "ICU"),
        [=] { return u_strncasecmp(a, b, n, 0); });
}

void Upper(const char* group, const Text& text) {
    const Text* source = Keep(text);
    char16_t* d = const_cast<char16_t*>(Keep(Text(text.size() * 3, 0))->c_str());
    const size_t bytes = (text.size() + 1) * 2;
    const auto room = static_cast<int32_t>(text.size() * 3);
    Row(Name(group, text.size(), "TavPort"),
        [=] { return memcpy(d, source->c_str(), bytes), tav_wcsupr(d); });
    Row(Name(group, text.size(), "ICU"), [=] {
        UErrorCode status = U_ZERO_ERROR;
        return u_strToUpper(d, room, source->c_str(), -1, "", &status);
    });
}

char16_t* IcuFromUTF8(const char* s) {
    const size_t n = strlen(s);
    auto* block = static_cast<char16_t*>(malloc((n + 1) * 2));
    UErrorCode status = U_ZERO_ERROR;
    return u_strFromUTF8(block, static_cast<int32_t>(n + 1), nullptr, s, static_cast<int32_t>(n), &status);
}

char* IcuToUTF8(const char16_t* s) {
    const int32_t n = u_strlen(s);
    auto* block = static_cast<char*>(malloc(static_cast<size_t>(n) * 3 + 1));
    UErrorCode status = U_ZERO_ERROR;
    return u_strToUTF8(block, n * 3 + 1, nullptr, s, n, &status);
}

void Conversion(const char* alphabet, const std::string& utf8) {
    const std::string* narrow = Keep(utf8);
    TavChar* wide = Tav0UTF16FromUTF8(narrow->c_str());
    const std::string from = std::string("from-utf8-") + alphabet, to = std::string("to-utf8-") + alphabet;
    const size_t size = utf8.size();
    Row(Name(from.c_str(), size, "TavPort"),
        [=] { return Tav0UTFRelease(Tav0UTF16FromUTF8(narrow->c_str())), 0; });
    Row(Name(from.c_str(), size, "ICU"), [=] { return free(IcuFromUTF8(narrow->c_str())), 0; });
    Row(Name(from.c_str(), size, "GLib"),
        [=] { return g_free(g_utf8_to_utf16(narrow->c_str(), -1, nullptr, nullptr, nullptr)), 0; });
    Row(Name(to.c_str(), size, "TavPort"), [=] { return Tav0UTFRelease(Tav0UTF8FromUTF16(wide)), 0; });
    Row(Name(to.c_str(), size, "ICU"), [=] { return free(IcuToUTF8(wide)), 0; });
    Row(Name(to.c_str(), size, "GLib"), [=] {
        return g_free(
                   g_utf16_to_utf8(reinterpret_cast<const gunichar2*>(wide), -1, nullptr, nullptr, nullptr)),
               0;
    });
}

std::string Repeated(const std::string& piece, size_t bytes) {
    std::string text;
    while (text.size() + piece.size() <= bytes) text += piece;
    return text;
}

void Conversions() {
    // A block that was shrunk leaves the allocator mapping the next large one anew, page faults and all,
    // until someone frees a larger one. Every row is to find the state that the larger one leaves.
    void* large = malloc(4 << 20);
    benchmark::DoNotOptimize(large);
    free(large);
    for (size_t size : {20u, 60u, 200u, 1u << 20}) Conversion("ascii", Repeated("q", size));
    Conversion("cjk", Repeated("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", 1 << 20));
    Conversion(
        "mixed",
        Repeated("The caf\xC3\xA9 of \xD0\x9C\xD0\xB8\xD1\x80, \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80. ",
                 1 << 20));
}

// The haystack that std::find's and our own candidates like least: long matches that fail at the end.
void SlowFinding() {
    Finding("wcsstr-slow", Text(1000, u'a'), Text(30, u'a') + u'b');
    Finding("wcsstr-slow2", Text(1000, u'a'), u"b" + Text(30, u'a'));
    Text periodic;
    while (periodic.size() < 1000) periodic += u"ababababac";
    Finding("wcsstr-periodic", periodic, u"abababababac");
    Finding("wcsstr-middle", Text(1000, u'a'), Text(15, u'a') + u'b' + Text(15, u'a'));
    Text path;
    while (path.size() < 1000) path += u"/Users/someone/Documents/";
    Finding("wcsstr-path", path, u"/Users/someone/Documentation");
}

Text Greek(size_t length, char16_t first) {
    Text text(length, first);
    for (size_t i = 0; i < length; ++i) text[i] = static_cast<char16_t>(first + i % 16);
    return text;
}

std::wstring Host(const Text& text) {
    return {text.begin(), text.end()};
}

void Integers(const Text& text) {
    const char16_t* s = Keep(Text(text))->c_str();
    const wchar_t* host = Keep(Host(text))->c_str();
    const char* narrow = Keep(std::string(text.begin(), text.end()))->c_str();
    const size_t n = text.size();
    Row(Name("wcstol-engine", n, "TavPort"), [=] { return tav_wcstol(s, nullptr, 10); });
    Row(Name("wcstol-engine", n, "wcstol"), [=] { return wcstol(host, nullptr, 10); });
    Row(Name("wtoi", n, "TavPort"), [=] { return tav_wtoi(s); });
    Row(Name("wtoi", n, "wcstol"), [=] { return wcstol(host, nullptr, 10); });
    Row(Name("wtoi", n, "strtol"), [=] { return strtol(narrow, nullptr, 10); });
}

void FloatingValues(const Text& text) {
    const char16_t* s = Keep(Text(text))->c_str();
    const wchar_t* host = Keep(Host(text))->c_str();
    const char* narrow = Keep(std::string(text.begin(), text.end()))->c_str();
    Row(Name("wcstod", text.size(), "TavPort"), [=] { return tav_wcstod(s, nullptr); });
    Row(Name("wcstod", text.size(), "wcstod"), [=] { return wcstod(host, nullptr); });
    Row(Name("wcstod", text.size(), "strtod"), [=] { return strtod(narrow, nullptr); });
}

void Formatting() {
    static char16_t buffer[256];
    static wchar_t host[256];
    Row(Name("snwprintf", 4, "TavPort"),
        [] { return tav_snwprintf(buffer, 255, u"%s %d %x %f", u"Read me first", 123456, 0xBEEF, 3.14159); });
    Row(Name("snwprintf", 4, "swprintf"),
        [] { return swprintf(host, 255, L"%ls %d %x %f", L"Read me first", 123456, 0xBEEF, 3.14159); });
    Row(Name("snwprintf", 4, "ICU"),
        [] { return u_snprintf(buffer, 255, "%S %d %x %f", u"Read me first", 123456, 0xBEEF, 3.14159); });
}

const bool registered = [] {
    for (size_t length : {16u, 64u, 255u, 1000u}) Searching(length);
    for (size_t length : {16u, 64u, 1000u}) Comparing(length);
    for (size_t length : {16u, 64u, 1000u}) Copying(length);
    Finding("wcsstr", Letters(64), u"xyz!");
    Finding("wcsstr", Letters(1000), u"hovcjqxez");
    SlowFinding();
    Caseless("same", Letters(64), Letters(64));
    Caseless("other-case", Letters(64), OtherCase(Letters(64)));
    Caseless("greek", Greek(64, 0x0391), Greek(64, 0x03B1));
    Upper("wcsupr-ascii", Letters(64));
    Upper("wcsupr-greek", Greek(64, 0x03B1));
    Conversions();
    Integers(u"1234567890");
    Integers(u"80");
    FloatingValues(u"1.5");
    FloatingValues(u"-273.15e2");
    Formatting();
    return true;
}();

} // namespace
