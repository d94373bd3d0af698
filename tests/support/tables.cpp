#include "support/tables.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>

static std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
        fields.push_back(line.substr(start, tab - start));
    fields.push_back(line.substr(start));
    return fields;
}

std::vector<std::vector<std::string>> ReadTable(const std::string& name) {
    std::ifstream file(std::string(TAVPORT_TEST_DATA) + "/" + name);
    if (!file) throw std::runtime_error("no table " + name);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("# ", 0) != 0) rows.push_back(Fields(line));
    }
    return rows;
}

std::u16string Unescape(const std::string& field) {
    std::u16string units;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field.compare(i, 2, "\\u") != 0) {
            units += static_cast<char16_t>(field[i]);
        } else {
            units += static_cast<char16_t>(std::stoul(field.substr(i + 2, 4), nullptr, 16));
            i += 5;
        }
    }
    return units;
}

std::string Escape(const std::u16string& units) {
    std::string text;
    for (char16_t unit : units) {
        if (unit >= 0x20 && unit < 0x7F && unit != u'\\') {
            text += static_cast<char>(unit);
        } else {
            char escape[8];
            snprintf(escape, sizeof escape, "\\u%04X", unsigned(unit));
            text += escape;
        }
    }
    return text;
}
