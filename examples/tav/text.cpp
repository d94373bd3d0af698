#include "text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

const TavChar kFirstStray = 0xdc80;
const TavChar kLastStray = 0xdcff;
const int64_t k1904To1970 = 2082844800;

bool IsStray(TavChar unit) {
    return unit >= kFirstStray && unit <= kLastStray;
}

// How many bytes of a character's encoding follow its first byte.
size_t Following(unsigned char first) {
    return first >= 0xf0 ? 3 : first >= 0xe0 ? 2 : first >= 0xc0 ? 1 : 0;
}

// How wide UTF-8 text is in characters.
size_t Width(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

} // namespace

Text Units(const std::string& bytes) {
    Text result;
    for (size_t at = 0; at < bytes.size();) {
        const size_t length = Following(static_cast<unsigned char>(bytes[at])) + 1;
        TavChar* units = Tav0UTF16FromUTF8(bytes.substr(at, length).c_str());
        if (units && at + length <= bytes.size()) {
            result += units;
            at += length;
        } else {
            result += static_cast<TavChar>(0xdc00 + static_cast<unsigned char>(bytes[at]));
            ++at;
        }
        if (units) Tav0UTFRelease(units);
    }
    return result;
}

std::string Bytes(const TavChar* units) {
    std::string result;
    while (*units) {
        const bool pair = *units >= 0xd800 && *units < 0xdc00 && units[1] >= 0xdc00 && units[1] < 0xe000;
        const TavChar one[3] = {units[0], pair ? units[1] : TavChar{0}, 0};
        char* utf8 = Tav0UTF8FromUTF16(one);
        if (utf8) {
            result += utf8;
            Tav0UTFRelease(utf8);
        } else {
            result += IsStray(*units) ? static_cast<char>(*units & 0xff) : '?';
        }
        units += pair ? 2 : 1;
    }
    return result;
}

bool IsText(const std::string& bytes) {
    const Text units = Units(bytes);
    return std::none_of(units.begin(), units.end(), IsStray);
}

std::string Shown(const std::string& bytes) {
    std::string result;
    char digits[5];
    for (const TavChar unit : Units(bytes)) {
        if (unit < ' ' || unit == 0x7f || IsStray(unit)) {
            std::snprintf(digits, sizeof digits, "\\x%02x", unit & 0xff);
            result += digits;
        } else {
            const TavChar one[2] = {unit, 0};
            result += unit < 0x80 ? std::string(1, static_cast<char>(unit)) : Bytes(one);
        }
    }
    return result;
}

std::string WithCommas(uint64_t number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, 1, ',');
    }
    return digits;
}

std::string ByteCount(uint64_t number) {
    return WithCommas(number) + (number == 1 ? " byte" : " bytes");
}

std::string Moment(const TavFileTime& time) {
    int64_t seconds = 0;
    for (int i = 0; i < 6; ++i) seconds = seconds << 8 | time.bytes[i];
    if (seconds == 0) return "-";
    const time_t since1970 = static_cast<time_t>(seconds - k1904To1970);
    tm local;
    char text[40];
    if (!localtime_r(&since1970, &local) || !std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local))
        return "-";
    return text;
}

void Table::Print() const {
    std::vector<size_t> widths(rows_.front().size());
    for (const auto& row : rows_) {
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    }
    for (const auto& row : rows_) {
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - Width(row[i]), ' ');
            const bool last = i + 1 == row.size();
            std::printf("%s%s%s", last ? "" : padding.c_str(), row[i].c_str(), last ? "\n" : "  ");
        }
    }
}
