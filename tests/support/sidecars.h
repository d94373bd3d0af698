// Sidecars as another program would have left them.
#pragma once

#include <string>

// The content of an AppleDouble file without entries.
std::string EmptySidecar();
