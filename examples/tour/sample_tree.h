// The tour's only dealings with the host: a tree to show, a scratch folder to work in, a folder that the user
// names.
#pragma once

#include <string>

// A new empty folder in the system's place for temporary things.
std::string MakeScratchFolder();

// Fills an existing folder with what a Mac user's folder holds: names beyond ASCII, a package, a link, a
// locked file and a file with a resource fork.
void MakeSampleTree(const std::string& folder);

// The absolute path of a folder that can be listed; otherwise throws std::runtime_error with the reason.
std::string CheckedFolder(const std::string& folder);
