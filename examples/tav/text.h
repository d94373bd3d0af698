// Text between the terminal's bytes and the library's units, and how values are shown.
#pragma once

#include <TavPort.h>

#include <cstdint>
#include <string>
#include <vector>

using Text = std::basic_string<TavChar>;

// Bytes as units. Bytes that are not UTF-8 become the lone surrogates U+DC80 to U+DCFF, by which the library names
// files whose names are no text.
Text Units(const std::string& bytes);

// The way back, byte for byte.
std::string Bytes(const TavChar* units);
inline std::string Bytes(const Text& units) {
    return Bytes(units.c_str());
}

// Whether bytes are UTF-8 throughout: the library's references name no other files, its path strings do.
bool IsText(const std::string& bytes);

// For a terminal: control characters and stray bytes as \x and two digits.
std::string Shown(const std::string& bytes);

// 1234567 as "1,234,567".
std::string WithCommas(uint64_t number);

// "1 byte", "5,000 bytes".
std::string ByteCount(uint64_t number);

// Local time as "2026-11-21 09:30:00"; "-" for the moment 0, which stands for an unknown date.
std::string Moment(const TavFileTime& time);

// Columns as wide as their widest cell, flush right but for the last.
class Table {
public:
    explicit Table(std::vector<std::string> headings) { rows_.push_back(std::move(headings)); }
    void Add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    void Print() const;

private:
    std::vector<std::vector<std::string>> rows_;
};
