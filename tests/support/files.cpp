#include "support/files.h"

#include <codecvt>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <locale>
#include <stdexcept>

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tavport-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    path_ = std::filesystem::canonical(pattern);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

size_t OpenDescriptors() {
    using Listing = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(Listing("/proc/self/fd"), Listing()));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
static std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t>& Converter() {
    thread_local std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t> converter;
    return converter;
}

std::u16string Wide(const std::string& utf8) {
    return Converter().from_bytes(utf8);
}
std::string Narrow(const std::u16string& units) {
    return Converter().to_bytes(units);
}
#pragma GCC diagnostic pop
