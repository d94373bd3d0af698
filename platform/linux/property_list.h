// Property lists: what little a bundle's Info.plist is asked for.
#pragma once

#include <string>

namespace property_list {

// The text behind a key in an XML property list; empty when the file or the key is missing or it is no text.
std::string StringFor(const std::string& path, const std::string& key);

// The same in a list that has been read.
std::string StringIn(const std::string& text, const std::string& key);

} // namespace property_list
