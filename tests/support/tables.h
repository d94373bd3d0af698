// Tables of measured behaviour: tests/data/*.tsv.
#pragma once

#include <string>
#include <vector>

// The rows of a table, its fields as they stand; comment lines ("# ...") are left out.
std::vector<std::vector<std::string>> ReadTable(const std::string& name);

// The units of a field: printable ASCII stands for itself, \uXXXX for any other unit and the backslash.
std::u16string Unescape(const std::string& field);

// The other way round, for messages.
std::string Escape(const std::u16string& units);
