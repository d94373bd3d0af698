// ICU's strict conversions, to hold ours against.
#pragma once

#include <unicode/ustring.h>

#include <optional>
#include <string>

inline std::optional<std::u16string> IcuDecoded(const std::string& text) {
    std::u16string wide(text.size() + 1, 0);
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(wide.data(), static_cast<int32_t>(wide.size()), &length, text.data(),
                  static_cast<int32_t>(text.size()), &status);
    if (U_FAILURE(status)) return std::nullopt;
    return wide.substr(0, static_cast<size_t>(length));
}

inline std::optional<std::string> IcuEncoded(const std::u16string& text) {
    std::string narrow(text.size() * 3 + 1, 0);
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(narrow.data(), static_cast<int32_t>(narrow.size()), &length, text.data(),
                static_cast<int32_t>(text.size()), &status);
    if (U_FAILURE(status)) return std::nullopt;
    return narrow.substr(0, static_cast<size_t>(length));
}
