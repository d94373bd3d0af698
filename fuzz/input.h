// What every fuzz target does with its bytes.
#pragma once

#include "TavPort.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

// Stops the run when a property does not hold.
inline void Expect(bool holds) {
    if (!holds) abort();
}

// The bytes as units, up to the first zero.
inline std::basic_string<TavChar> Units(const uint8_t* data, size_t size) {
    std::basic_string<TavChar> units(size / sizeof(TavChar), 0);
    if (!units.empty()) memcpy(units.data(), data, units.size() * sizeof(TavChar));
    return units.substr(0, units.find(TavChar{0}));
}

// The bytes one after the other; zeros behind the last one.
class Input {
public:
    Input(const uint8_t* data, size_t size) : next_(data), left_(size) {}

    bool AtEnd() const { return left_ == 0; }

    uint8_t Byte() {
        if (left_ == 0) return 0;
        --left_;
        return *next_++;
    }

    uint32_t Number() {
        uint32_t number = 0;
        for (int i = 0; i < 4; ++i) number = number << 8 | Byte();
        return number;
    }

    // Bytes up to the next zero.
    std::string Name() {
        std::string name;
        while (const uint8_t byte = Byte()) name += static_cast<char>(byte);
        return name;
    }

    // That many bytes, or what is left.
    std::string Bytes(size_t count) {
        std::string bytes;
        for (; count > 0 && !AtEnd(); --count) bytes += static_cast<char>(Byte());
        return bytes;
    }

    // A text up to the next zero: ASCII as it is, 1 for twice all that stands in front of it, and 128 and above
    // for units of other kinds.
    std::basic_string<TavChar> Text() {
        static constexpr TavChar kOthers[] = {0x00E9, 0x00C9, 0x200E, 0xDC80, 0x0130, 0xFF80, 0x0100, 0xD800};
        constexpr size_t kMostUnits = 1 << 12;
        std::basic_string<TavChar> text;
        while (const uint8_t byte = Byte()) {
            if (byte == 1) {
                if (text.size() < kMostUnits) text += text;
            } else {
                text += byte < 0x80 ? TavChar{byte} : kOthers[byte % std::size(kOthers)];
            }
        }
        return text;
    }

private:
    const uint8_t* next_;
    size_t left_;
};
