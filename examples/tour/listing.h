// What a folder holds, and the drives.
#pragma once

#include <TavPort.h>

#include <string>
#include <vector>

// Everything in a folder, by name; the folder itself, as ".", where it is wanted.
std::vector<TavFindDataW> ListFolder(const std::string& folder, bool withItself);

// Whether a path leads to a folder, a package or not; the listing tells a package as a file.
bool IsFolder(const std::string& path);

// The names of the first few files in a folder.
std::vector<std::string> FilesIn(const std::string& folder, size_t most);

// Shows a folder and the drives; `expected` is found by its name, unless it is empty.
void ShowListing(const std::string& folder, const std::string& expected);
