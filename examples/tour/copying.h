// Copying a tree, comparing it and deleting it.
#pragma once

#include <string>

// Copies the folder `tree`, which holds the tour's sample, into the folder `scratch`.
void ShowCopying(const std::string& tree, const std::string& scratch);
