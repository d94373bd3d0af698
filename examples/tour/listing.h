// Tables of a folder's items and of the drives.
#pragma once

#include <string>

// Lists the folder, then the drives; an item that the list must show is checked where `expected` is not
// empty.
void ShowListing(const std::string& folder, const std::string& expected);
