// References, names and paths in the terms that tests think in.
#pragma once

#include "platform/types.h"

#include <string>

// The reference of an existing object; throws where there is none.
FSRef Reference(const std::string& path);

// The path that a reference leads to, or "error " and the result code.
std::string PathOf(const FSRef& ref);

HFSUniStr255 Name(const std::u16string& units);
