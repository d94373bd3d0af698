// What the path helpers do, the naive way: on lists of components, without URLs.
#pragma once

#include "TavPort.h"

#include <string>

namespace path_models {

using Text = std::basic_string<TavChar>;

// A path without the slashes at its end; the root keeps its own.
Text Stripped(Text path);

Text Name(const Text& path);

// The extension with its dot.
Text Extension(const Text& path);

// What each helper leaves in its buffer, or finds.
Text Appended(const Text& path, const Text& more);
Text FileSpecRemoved(const Text& path);
Text ExtensionRemoved(const Text& path);
Text SlashAdded(const Text& path);
Text SlashRemoved(const Text& path);
size_t ExtensionAt(const Text& path);
size_t FileNameAt(const Text& path);

// For paths on the start-up volume and relative ones.
Text Common(const Text& path1, const Text& path2);

} // namespace path_models
