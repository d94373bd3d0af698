#include "sample_tree.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <stdlib.h>
#include <sys/xattr.h>

namespace fs = std::filesystem;

namespace {

void Write(const fs::path& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

std::string BigEndian(uint32_t number, int bytes) {
    std::string text;
    while (bytes-- > 0) text += static_cast<char>(number >> (8 * bytes));
    return text;
}

// An AppleDouble record with one entry, in which file servers keep what a plain file has no place for.
std::string AppleDouble(uint32_t entry, const std::string& content) {
    constexpr uint32_t kHeaderBytes = 38;
    return BigEndian(0x00051607, 4) + BigEndian(0x00020000, 4) + std::string(16, '\0') + BigEndian(1, 2) +
           BigEndian(entry, 4) + BigEndian(kHeaderBytes, 4) +
           BigEndian(static_cast<uint32_t>(content.size()), 4) + content;
}

// In an attribute of the file, or beside the file on a volume that has no attributes.
void Lock(const fs::path& path) {
    constexpr uint32_t kServerInformation = 14;
    const std::string record = AppleDouble(kServerInformation, BigEndian(0x01A0, 4));
    if (setxattr(path.c_str(), "user.org.netatalk.Metadata", record.data(), record.size(), 0) == 0) return;
    Write(path.parent_path() / ("._" + path.filename().string()), record);
}

void AddResourceFork(const fs::path& path, const std::string& content) {
    constexpr uint32_t kResourceFork = 2;
    Write(path.parent_path() / ("._" + path.filename().string()), AppleDouble(kResourceFork, content));
}

} // namespace

std::string MakeScratchFolder() {
    std::string folder = (fs::temp_directory_path() / "tavport-tour-XXXXXX").string();
    if (!mkdtemp(folder.data())) throw std::runtime_error("cannot make a folder in " + folder);
    return fs::canonical(folder);
}

void MakeSampleTree(const std::string& folder) {
    const fs::path root(folder);
    fs::create_directories(root / "en" / "Letters");
    fs::create_directories(root / "Notes.app" / "Contents");
    Write(root / "en" / "Letters" / "summer.txt", "Dear Ann, the sea is warm.\n");
    Write(root / "en" / "Letters" / "\u00e9t\u00e9 \u65e5\u672c.txt", "Un nom avec des accents.\n");
    Write(root / "Notes.app" / "Contents" / "PkgInfo", "APPL????");
    Write(root / "contract.txt", "Signed and sealed.\n");
    Lock(root / "contract.txt");
    Write(root / "picture", "the picture's data\n");
    AddResourceFork(root / "picture", "the picture's resources");
    fs::create_symlink("en/Letters/summer.txt", root / "latest letter");
}

std::string CheckedFolder(const std::string& folder) {
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        if (!error) error = std::make_error_code(std::errc::not_a_directory);
        throw std::runtime_error(folder + ": " + error.message());
    }
    fs::directory_iterator(folder, error);
    if (error) throw std::runtime_error(folder + ": " + error.message());
    const std::string path = fs::canonical(folder);
    if (path.find("/.") != std::string::npos || path.find(':') != std::string::npos) {
        throw std::runtime_error(path + ": virtual paths hold no \":\" and no names that begin with \".\"");
    }
    if (path.size() > 900) throw std::runtime_error(path + ": too long for the tour");
    return path;
}
