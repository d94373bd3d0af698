#include "text/character_classes.h"

namespace {

constexpr bool Within(unsigned c, unsigned first, unsigned last) {
    return first <= c && c <= last;
}

constexpr unsigned UpperOf(unsigned c) {
    return Within(c, 'a', 'z') ? c - 0x20 : c;
}
constexpr unsigned LowerOf(unsigned c) {
    return Within(c, 'A', 'Z') ? c + 0x20 : c;
}

constexpr unsigned HexDigit(unsigned c) {
    return Within(LowerOf(c), 'a', 'f') ? kXDigit : 0;
}

constexpr unsigned ClassesOfAscii(unsigned c) {
    if (c >= 0x80) return 0;
    if (c == 0x09) return kCntrl | kSpace | kBlank;
    if (Within(c, 0x0A, 0x0D)) return kCntrl | kSpace;
    if (c < 0x20 || c == 0x7F) return kCntrl;
    if (c == 0x20) return kSpace | kBlank | kPrint;
    if (Within(c, '0', '9')) return kDigit | kXDigit | kGraph | kPrint;
    if (Within(c, 'A', 'Z')) return kUpper | kAlpha | kGraph | kPrint | HexDigit(c);
    if (Within(c, 'a', 'z')) return kLower | kAlpha | kGraph | kPrint | HexDigit(c);
    return kPunct | kGraph | kPrint;
}

template <typename Function>
constexpr CharacterTable Fill(Function function) {
    CharacterTable table{};
    for (unsigned c = 0; c < table.size(); ++c) table[c] = static_cast<uint16_t>(function(c));
    return table;
}

} // namespace

constexpr CharacterTable __wupper_mapC = Fill(UpperOf);
constexpr CharacterTable __wlower_mapC = Fill(LowerOf);
constexpr CharacterTable __wctype_mapC = Fill(ClassesOfAscii);

TavChar tav_towupper(uint32_t c) {
    const uint32_t unit = c & 0xFFFF;
    return static_cast<TavChar>(unit > 0xFF ? unit : __wupper_mapC[unit]);
}

TavChar tav_towlower(uint32_t c) {
    const uint32_t unit = c & 0xFFFF;
    return static_cast<TavChar>(unit > 0xFF ? unit : __wlower_mapC[unit]);
}

int32_t tav_iswalpha(uint32_t c) {
    return ClassesOf(c, kAlpha);
}

// kept: 1 for letters and 8 for digits, the bits of both classes.
int32_t tav_iswalnum(uint32_t c) {
    return ClassesOf(c, static_cast<CharacterClass>(kAlpha | kDigit));
}

int32_t tav_iswcntrl(uint32_t c) {
    return ClassesOf(c, kCntrl);
}
int32_t tav_iswdigit(uint32_t c) {
    return ClassesOf(c, kDigit);
}
int32_t tav_iswgraph(uint32_t c) {
    return ClassesOf(c, kGraph);
}
int32_t tav_iswlower(uint32_t c) {
    return ClassesOf(c, kLower);
}
int32_t tav_iswprint(uint32_t c) {
    return ClassesOf(c, kPrint);
}
int32_t tav_iswpunct(uint32_t c) {
    return ClassesOf(c, kPunct);
}
int32_t tav_iswspace(uint32_t c) {
    return ClassesOf(c, kSpace);
}
int32_t tav_iswupper(uint32_t c) {
    return ClassesOf(c, kUpper);
}
int32_t tav_iswxdigit(uint32_t c) {
    return ClassesOf(c, kXDigit);
}
