// What every fuzz target does with its bytes.
#pragma once

#include "TavPort.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
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
